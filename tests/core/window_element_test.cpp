// The inventory tree's node: lookups, child lists and the outline's texts.
#include <gtest/gtest.h>

#include "tests/support/tree_builders.h"

namespace pv {
namespace {

using test::makeNode;

TEST(WindowElement, LookupsFindDirectScreensAndTheFirstApplicationInPreOrder) {
    const auto t = test::sampleTree();
    EXPECT_EQ(t.root->findScreen(2), t.right);
    EXPECT_FALSE(t.root->findScreen(3));
    EXPECT_FALSE(t.left->findScreen(1));  // its children are applications
    auto outer = makeNode(PVElementKindRoot, "outer");
    outer->addChild(t.root);
    EXPECT_FALSE(outer->findScreen(1));  // a deeper screen is not found
    EXPECT_EQ(t.root->findElement(311), t.leftEditor);
    EXPECT_EQ(t.right->findParent(311), t.rightEditor);
    EXPECT_FALSE(t.root->findElement(1));   // screen 1 is not an application
    EXPECT_FALSE(t.root->findElement(51));  // nor is window 51

    // Every node containing a point, in pre-order: the screen's frame, then the shared window under each screen.
    std::vector<PVWindowElement::Ptr> found;
    t.root->findNodes(found, {1300, 300});
    EXPECT_EQ(found, (std::vector<PVWindowElement::Ptr>{t.left, t.across, t.across}));
    found.clear();
    t.left->findNodes(found, {1440, 0});  // the right edge is outside
    EXPECT_TRUE(std::find(found.begin(), found.end(), t.left) == found.end());
}

TEST(WindowElement, ChildrenIsASnapshotAndRemovalTakesEveryOccurrence) {
    const auto t = test::sampleTree();
    t.leftEditor->addChild(t.notes);
    const auto snapshot = t.leftEditor->children();
    for (const auto& c : snapshot) t.leftEditor->removeChild(c.get());
    EXPECT_EQ(snapshot.size(), 3u);
    EXPECT_TRUE(t.leftEditor->isLeaf());
    EXPECT_EQ(t.rightEditor->children(), std::vector<PVWindowElement::Ptr>{t.across});  // still under the other screen
    t.rightEditor->removeChild(t.notes.get());                                          // not a child: nothing changes
    EXPECT_EQ(t.rightEditor->childCount(), 1u);
}

// The inventory's text outline shows the usual names; here the edges of the
// numbers: truncation towards zero and sizes beyond the 32-bit integers.
TEST(WindowElement, DisplayNamesPrintTheNumbersTheyHold) {
    EXPECT_EQ(makeNode(PVElementKindScreen, "L", {-1920.7, -0.5, 1439.9, 900})->displayName(),
              "L (x:-1920, y:0, w:1439, h:900, non-retina)");
    EXPECT_EQ(makeNode(PVElementKindWindow, "Vast", {-3e9, 0, 4294967296.5, 1e12})->displayName(),
              "Vast (x:-3000000000, y:0, w:4294967296, h:1000000000000)");
}

}  // namespace
}  // namespace pv
