#pragma once
// A hand-built inventory tree for the outline and view tests:
//
//   studio (root)
//     Left (screen 1)
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

struct SampleTree {
    PVWindowElement::Ptr root, left, right, leftEditor, viewer, rightEditor, terminal, across, notes, photo;
};

inline PVWindowElement::Ptr makeNode(uint32_t kind, const std::string& name, Rect dims = {}, uint32_t id = 0) {
    auto n = std::make_shared<PVWindowElement>();
    n->kind = kind;
    n->name = name;
    n->dimensions = dims;
    n->eidi = id;
    return n;
}

inline SampleTree sampleTree() {
    SampleTree t;
    t.root = makeNode(PVElementKindRoot, "studio");
    t.left = makeNode(PVElementKindScreen, "Left", {0, 0, 1440, 900}, 1);
    t.left->isMainDisplay = true;
    t.right = makeNode(PVElementKindScreen, "Right", {1440, 0, 1920, 1200}, 2);
    t.leftEditor = makeNode(PVElementKindApplication, "Editor", {}, 311);
    t.viewer = makeNode(PVElementKindApplication, "Viewer", {}, 422);
    t.rightEditor = makeNode(PVElementKindApplication, "Editor", {}, 311);
    t.terminal = makeNode(PVElementKindApplication, "Terminal", {}, 420);
    t.across = makeNode(PVElementKindWindow, "Across", {1240, 100, 400, 300}, 51);
    t.notes = makeNode(PVElementKindWindow, "Notes", {80, 60, 300, 200}, 53);
    t.photo = makeNode(PVElementKindWindow, "Photo", {500, 60, 300, 200}, 55);

    t.root->addChild(t.left);
    t.root->addChild(t.right);
    t.left->addChild(t.leftEditor);
    t.left->addChild(t.viewer);
    t.leftEditor->addChild(t.across);
    t.leftEditor->addChild(t.notes);
    t.viewer->addChild(t.photo);
    t.right->addChild(t.rightEditor);
    t.right->addChild(t.terminal);
    t.rightEditor->addChild(t.across);
    return t;
}

}  // namespace pv::test
