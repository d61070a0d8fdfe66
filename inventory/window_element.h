#pragma once
// PVWindowElement: one node of the inventory tree (root > screens > applications
// > windows). A window node is also the cache of its window's picture until the
// next refresh builds a new tree.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/coordinates.h"
#include "platform/image.h"

namespace pv {

enum PVElementKind : uint32_t {
    PVElementKindRoot = 0,
    PVElementKindScreen = 1,
    PVElementKindApplication = 2,
    PVElementKindWindow = 3,
};

class PVWindowElement : public std::enable_shared_from_this<PVWindowElement> {
public:
    using Ptr = std::shared_ptr<PVWindowElement>;

    PVWindowElement() = default;

    // Tree structure. children() is a snapshot: callers may add or remove
    // children while they walk it.
    std::vector<Ptr> children() const { return children_; }
    uint64_t childCount() const { return children_.size(); }
    bool isLeaf() const { return children_.empty(); }
    void addChild(const Ptr& child);                 // appends; no duplicate check, parent untouched
    void removeChild(const PVWindowElement* child);  // removes every occurrence

    // Only application nodes (kind 2) match; depth-first pre-order.
    Ptr findElement(uint32_t pid) const;
    Ptr findParent(uint32_t pid) const { return findElement(pid); }
    // Direct children of kind 1 with that display id.
    Ptr findScreen(uint32_t displayId) const;
    // Every node of the subtree whose dimensions contain the point, pre-order.
    void findNodes(std::vector<Ptr>& out, Point p) const;

    ScreenRect screenFrame() const { return retagged<ScreenSpace>(dimensions); }
    WindowRect windowBounds() const { return retagged<WindowSpace>(dimensions); }

    std::string displayName() const;
    std::string description() const;

    // Window nodes: the application node the window was last filed under.
    Ptr parent() const;
    void setParent(const Ptr& p);

    // Fields, as the inventory sets them.
    ImagePtr shot;    // window nodes: the captured picture, empty until taken
    ImagePtr shadow;  // never set; kept for completeness of the record
    std::string name = "Name";
    // Application nodes: the owner the inventory's rules compare ("Dock",
    // "Window Server", a class name), while name is what people call the
    // program; and its icon, an icon-theme name or an absolute file path
    // (empty when unknown).
    std::string role;
    std::string iconName;
    // Window nodes: every screen the bounds touch, in screen-list order. Back
    // links: the tree owns its screens, the windows only point at them, so an
    // old tree goes as a whole when nobody holds it.
    std::vector<std::weak_ptr<PVWindowElement>> screens;
    // Screens: the frame (bottom-up points); windows: the bounds (top-down
    // points). screenFrame() and windowBounds() give them their types.
    Rect dimensions;
    uint32_t kind = PVElementKindRoot;
    uint32_t eidi = 0;
    int32_t windowLevel = 0;
    // Window nodes: the place in the window server's list, 0 for the frontmost
    // window; orders windows of one level as the screen stacks them.
    uint32_t listPosition = 0;
    float scaling = 0;
    float shadowX = 0;
    float shadowY = 0;
    bool isMainDisplay = false;
    bool isSystemWindow = false;

private:
    // findElement/findNodes need shared_ptrs of the children, not of this node.
    static Ptr findElementIn(const Ptr& node, uint32_t pid);
    static void findNodesIn(const Ptr& node, std::vector<Ptr>& out, Point p);

    std::vector<Ptr> children_;
    mutable std::mutex parentMutex_;  // parent is read by the selection job off the main thread
    std::weak_ptr<PVWindowElement> parent_;
};

}  // namespace pv
