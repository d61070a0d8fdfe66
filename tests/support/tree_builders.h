#pragma once
// Inventory trees built by hand for the tests: single nodes, nodes filed under
// a parent, and one sample tree:
//
//   studio (root)
//     Left (screen 1, main)
//       Editor (pid 311)
//         Across   <- one node, also filed under the right screen
//         Notes
//       Viewer (pid 422)
//         Photo
//     Right (screen 2)
//       Editor (pid 311)
//         Across
//       Terminal (pid 420)        (no windows)

#include <memory>
#include <string>

#include "inventory/window_element.h"

namespace pv::test {

inline PVWindowElement::Ptr makeNode(uint32_t kind, const std::string& name, Rect dims = {}, uint32_t id = 0) {
    auto n = std::make_shared<PVWindowElement>();
    n->kind = kind;
    n->name = name;
    n->dimensions = dims;
    n->eidi = id;
    return n;
}

// A new node filed under `parent` (its parent pointer set as the inventory does).
inline PVWindowElement::Ptr addNode(const PVWindowElement::Ptr& parent, uint32_t kind, const std::string& name,
                                    Rect dims = {}, uint32_t id = 0) {
    auto n = makeNode(kind, name, dims, id);
    n->setParent(parent);
    parent->addChild(n);
    return n;
}

struct SampleTree {
    PVWindowElement::Ptr root, left, right, leftEditor, viewer, rightEditor, terminal, across, notes, photo;
};

inline SampleTree sampleTree() {
    SampleTree t;
    t.root = makeNode(PVElementKindRoot, "studio");
    t.left = addNode(t.root, PVElementKindScreen, "Left", {0, 0, 1440, 900}, 1);
    t.left->isMainDisplay = true;
    t.right = addNode(t.root, PVElementKindScreen, "Right", {1440, 0, 1920, 1200}, 2);
    t.leftEditor = addNode(t.left, PVElementKindApplication, "Editor", {}, 311);
    t.across = addNode(t.leftEditor, PVElementKindWindow, "Across", {1240, 100, 400, 300}, 51);
    t.notes = addNode(t.leftEditor, PVElementKindWindow, "Notes", {80, 60, 300, 200}, 53);
    t.viewer = addNode(t.left, PVElementKindApplication, "Viewer", {}, 422);
    t.photo = addNode(t.viewer, PVElementKindWindow, "Photo", {500, 60, 300, 200}, 55);
    t.rightEditor = addNode(t.right, PVElementKindApplication, "Editor", {}, 311);
    t.rightEditor->addChild(t.across);
    t.terminal = addNode(t.right, PVElementKindApplication, "Terminal", {}, 420);
    return t;
}

}  // namespace pv::test
