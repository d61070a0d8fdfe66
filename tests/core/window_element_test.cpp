// The inventory tree's node: lookups, child lists and the outline's texts.
#include <gtest/gtest.h>

#include "inventory/window_element.h"

namespace pv {
namespace {

PVWindowElement::Ptr node(uint32_t kind, uint32_t eidi, const char* name = "n", Rect d = {}) {
    auto n = std::make_shared<PVWindowElement>();
    n->kind = kind;
    n->eidi = eidi;
    n->name = name;
    n->dimensions = d;
    return n;
}

// root > screens 1 and 2 > application 311 under each > windows; window 311
// has the same number as the process it belongs to.
struct Tree {
    PVWindowElement::Ptr root = node(PVElementKindRoot, 0, "studio");
    PVWindowElement::Ptr screen1 = node(PVElementKindScreen, 1, "Main", {0, 0, 1440, 900});
    PVWindowElement::Ptr screen2 = node(PVElementKindScreen, 2, "Side", {1440, 0, 1920, 1200});
    PVWindowElement::Ptr app1 = node(PVElementKindApplication, 311, "Editor");
    PVWindowElement::Ptr app2 = node(PVElementKindApplication, 311, "Editor");
    PVWindowElement::Ptr wide = node(PVElementKindWindow, 311, "Wide", {1000, 100, 1000, 400});
    Tree() {
        root->addChild(screen1);
        root->addChild(screen2);
        screen1->addChild(app1);
        screen2->addChild(app2);
        app1->addChild(wide);
        app2->addChild(wide);
    }
};

TEST(WindowElement, ANewNodeIsAnUnnamedLeafRoot) {
    PVWindowElement n;
    EXPECT_EQ(n.kind, PVElementKindRoot);
    EXPECT_EQ(n.name, "Name");
    EXPECT_TRUE(n.isLeaf());
    EXPECT_EQ(n.displayName(), "Name");
    EXPECT_FALSE(n.parent());
}

TEST(WindowElement, FindScreenLooksOnlyAtDirectScreenChildren) {
    Tree t;
    EXPECT_EQ(t.root->findScreen(2), t.screen2);
    EXPECT_FALSE(t.root->findScreen(3));
    EXPECT_FALSE(t.screen1->findScreen(1));  // its children are applications
    auto outer = node(PVElementKindRoot, 0);
    outer->addChild(t.root);
    EXPECT_FALSE(outer->findScreen(1));  // a deeper screen is not found
}

TEST(WindowElement, FindElementReturnsTheFirstApplicationNodeInPreOrder) {
    Tree t;
    EXPECT_EQ(t.root->findElement(311), t.app1);
    EXPECT_EQ(t.screen2->findParent(311), t.app2);
    EXPECT_FALSE(t.root->findElement(1));  // screen 1 is not an application
    EXPECT_FALSE(t.app1->children()[0]->findElement(311));  // nor is the window numbered 311
}

TEST(WindowElement, ChildrenIsASnapshotAndRemovalTakesEveryOccurrence) {
    Tree t;
    auto extra = node(PVElementKindWindow, 5);
    t.app1->addChild(extra);
    t.app1->addChild(extra);
    auto snapshot = t.app1->children();
    for (const auto& c : snapshot) t.app1->removeChild(c.get());
    EXPECT_EQ(snapshot.size(), 3u);
    EXPECT_TRUE(t.app1->isLeaf());
    // The shared window stays under the other screen.
    EXPECT_EQ(t.app2->childCount(), 1u);
    t.app2->removeChild(extra.get());  // not a child: nothing changes
    EXPECT_EQ(t.app2->childCount(), 1u);
}

TEST(WindowElement, FindNodesCollectsEveryContainingNodeInPreOrder) {
    Tree t;
    std::vector<PVWindowElement::Ptr> found;
    t.root->findNodes(found, {1200, 300});
    // Screen 1's frame, then the window under each screen; the applications
    // have no dimensions and contain nothing.
    ASSERT_EQ(found, (std::vector<PVWindowElement::Ptr>{t.screen1, t.wide, t.wide}));
    found.clear();
    t.screen1->findNodes(found, {1440, 0});  // right edge is outside
    for (const auto& n : found) EXPECT_NE(n, t.screen1);
}

TEST(WindowElement, DisplayNamesFollowTheKind) {
    Tree t;
    t.screen1->scaling = 2.0f;
    t.screen1->isMainDisplay = true;
    t.screen2->scaling = 1.0f;
    EXPECT_EQ(t.root->displayName(), "studio");
    EXPECT_EQ(t.screen1->displayName(), "Main (x:0, y:0, w:1440, h:900, retina, main)");
    EXPECT_EQ(t.screen2->displayName(), "Side (x:1440, y:0, w:1920, h:1200, non-retina)");
    EXPECT_EQ(t.app1->displayName(), "Editor (pid: 311)");
    EXPECT_EQ(t.wide->displayName(), "Wide (x:1000, y:100, w:1000, h:400)");
    auto left = node(PVElementKindScreen, 3, "Left", {-1920.7, -0.5, 1439.9, 900});
    EXPECT_EQ(left->displayName(), "Left (x:-1920, y:0, w:1439, h:900, non-retina)");
    // Sizes beyond the 32-bit integers print as the numbers they are.
    auto vast = node(PVElementKindWindow, 9, "Vast", {-3e9, 0, 4294967296.5, 1e12});
    EXPECT_EQ(vast->displayName(), "Vast (x:-3000000000, y:0, w:4294967296, h:1000000000000)");
    EXPECT_EQ(t.wide->description(), "Wide, (311), {{1000, 100}, {1000, 400}}");
}

}  // namespace
}  // namespace pv
