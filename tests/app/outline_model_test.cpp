// The outline's rows over an inventory tree.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QIcon>
#include <QImage>
#include <QTemporaryDir>

#include <functional>

#include "inventory/qt/outline_model.h"
#include "tests/support/tree_builders.h"

using namespace pv;

namespace {

// Every index of the model, depth-first pre-order.
std::vector<QModelIndex> allRows(const OutlineModel& model, const QModelIndex& parent = {}) {
    std::vector<QModelIndex> rows;
    for (int r = 0; r < model.rowCount(parent); ++r) {
        const QModelIndex i = model.index(r, 0, parent);
        rows.push_back(i);
        const auto below = allRows(model, i);
        rows.insert(rows.end(), below.begin(), below.end());
    }
    return rows;
}

class OutlineModelTest : public ::testing::Test {
protected:
    void SetUp() override { model.setRoot(t.root); }
    test::SampleTree t = test::sampleTree();
    OutlineModel model;
};

}  // namespace

TEST_F(OutlineModelTest, RowZeroIsTheRootAndRowsFollowTheChildrenWithTheirDisplayNames) {
    ASSERT_EQ(model.rowCount(), 1);
    const QModelIndex root = model.index(0, 0);
    EXPECT_EQ(model.nodeAt(root), t.root);
    EXPECT_FALSE(model.parent(root).isValid());
    EXPECT_FALSE(model.index(1, 0).isValid());
    EXPECT_FALSE(model.index(0, 1).isValid());

    ASSERT_EQ(model.rowCount(root), 2);
    const QModelIndex left = model.index(0, 0, root);
    const QModelIndex right = model.index(1, 0, root);
    EXPECT_EQ(model.nodeAt(left), t.left);
    EXPECT_EQ(model.nodeAt(right), t.right);
    EXPECT_EQ(model.parent(right), root);

    // The shared window has a row under each screen's application.
    const QModelIndex rightEditor = model.index(0, 0, right);
    ASSERT_EQ(model.rowCount(rightEditor), 1);
    const QModelIndex acrossOnRight = model.index(0, 0, rightEditor);
    EXPECT_EQ(model.nodeAt(acrossOnRight), t.across);
    EXPECT_EQ(model.parent(acrossOnRight), rightEditor);
    EXPECT_EQ(model.parent(model.parent(acrossOnRight)), right);

    // An application without windows and a window are leaves.
    const QModelIndex terminal = model.index(1, 0, right);
    EXPECT_EQ(model.nodeAt(terminal), t.terminal);
    EXPECT_FALSE(model.hasChildren(terminal));
    EXPECT_TRUE(model.hasChildren(rightEditor));
    EXPECT_EQ(allRows(model).size(), 11u);
    EXPECT_EQ(model.nodeAt(QModelIndex()), nullptr);
    for (const QModelIndex& i : allRows(model)) {
        EXPECT_EQ(model.data(i).toString().toStdString(), model.nodeAt(i)->displayName());
        EXPECT_TRUE(model.flags(i).testFlag(Qt::ItemIsSelectable));
    }
}

// Application rows carry their program's icon: from the icon theme by name,
// or a file by its absolute path; names show as they are.
TEST_F(OutlineModelTest, ApplicationRowsShowTheirProgramsIconAndName) {
    const QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString theme = dir.filePath("icons/pv-test");
    ASSERT_TRUE(QDir().mkpath(theme + "/16x16/apps"));
    QFile index(theme + "/index.theme");
    ASSERT_TRUE(index.open(QIODevice::WriteOnly));
    index.write("[Icon Theme]\nName=pv-test\nDirectories=16x16/apps\n\n[16x16/apps]\nSize=16\nType=Fixed\n");
    index.close();
    const auto filled = [](const QString& path, Qt::GlobalColor colour) {
        QImage image(16, 16, QImage::Format_ARGB32);
        image.fill(colour);
        return image.save(path);
    };
    ASSERT_TRUE(filled(theme + "/16x16/apps/pv-viewer.png", Qt::red));
    ASSERT_TRUE(filled(dir.filePath("editor.png"), Qt::blue));
    const QStringList searchPaths = QIcon::themeSearchPaths();
    const QString themeName = QIcon::themeName();
    QIcon::setThemeSearchPaths({dir.filePath("icons")});
    QIcon::setThemeName("pv-test");

    t.viewer->name = "Visionneuse \xE2\x9C\x93";
    t.viewer->iconName = "pv-viewer";
    t.leftEditor->iconName = dir.filePath("editor.png").toStdString();
    t.terminal->iconName = "pv-no-such-icon";
    t.notes->iconName = "pv-viewer";  // only application rows show one
    model.setRoot(t.root);
    const auto colourOf = [&](const PVWindowElement::Ptr& node) {
        const QVariant icon = model.data(model.indexOf(node.get()), Qt::DecorationRole);
        return icon.isValid() ? icon.value<QIcon>().pixmap(16).toImage().pixelColor(8, 8) : QColor();
    };
    EXPECT_EQ(colourOf(t.viewer), QColor(Qt::red));
    EXPECT_EQ(colourOf(t.leftEditor), QColor(Qt::blue));
    EXPECT_FALSE(model.data(model.indexOf(t.terminal.get()), Qt::DecorationRole).isValid());
    EXPECT_FALSE(model.data(model.indexOf(t.notes.get()), Qt::DecorationRole).isValid());
    EXPECT_EQ(model.data(model.indexOf(t.viewer.get())).toString(), QString::fromUtf8("Visionneuse \u2713 (pid: 422)"));

    QIcon::setThemeSearchPaths(searchPaths);
    QIcon::setThemeName(themeName);
}

TEST_F(OutlineModelTest, IndexPathOfTheFirstRowInPreOrder) {
    EXPECT_EQ(model.indexPathOf(t.root), (std::vector<int>{0}));
    EXPECT_EQ(model.indexPathOf(t.photo), (std::vector<int>{0, 0, 1, 0}));
    EXPECT_EQ(model.indexPathOf(t.terminal), (std::vector<int>{0, 1, 1}));
    // A window filed under two screens: the path under the first screen.
    EXPECT_EQ(model.indexPathOf(t.across), (std::vector<int>{0, 0, 0, 0}));
    const QModelIndex across = model.indexOf(t.across.get());
    EXPECT_EQ(model.nodeAt(model.parent(model.parent(across))), t.left);
    // An equal-looking node that is not in the tree has no row.
    const auto stranger = test::makeNode(PVElementKindWindow, "Across", {1240, 100, 400, 300}, 51);
    EXPECT_TRUE(model.indexPathOf(stranger).empty());
    EXPECT_FALSE(model.indexOf(stranger.get()).isValid());
    EXPECT_TRUE(model.indexPathOf(nullptr).empty());

    // Paths lead back to the same rows.
    for (const QModelIndex& i : allRows(model)) {
        const auto path = model.indexPathOf(model.nodeAt(i));
        EXPECT_EQ(model.nodeAt(model.indexAt(path)), model.nodeAt(i));
    }
    EXPECT_FALSE(model.indexAt({0, 2}).isValid());
    EXPECT_FALSE(model.indexAt({-1}).isValid());
}

TEST_F(OutlineModelTest, SetRootResetsTheRows) {
    int resets = 0;
    QObject::connect(&model, &QAbstractItemModel::modelReset, [&resets] { ++resets; });

    // A new tree replaces every row, even where the old one had more.
    auto fresh = test::makeNode(PVElementKindRoot, "studio");
    auto only = test::makeNode(PVElementKindScreen, "Only", {0, 0, 800, 600}, 9);
    fresh->addChild(only);
    model.setRoot(fresh);
    EXPECT_EQ(resets, 1);
    ASSERT_EQ(model.rowCount(model.index(0, 0)), 1);
    EXPECT_EQ(model.nodeAt(model.index(0, 0, model.index(0, 0))), only);
    EXPECT_TRUE(model.indexPathOf(t.across).empty());

    // The rows are those of the tree at setRoot: a later change shows only
    // after the next reset.
    fresh->addChild(test::makeNode(PVElementKindScreen, "Late", {}, 10));
    EXPECT_EQ(model.rowCount(model.index(0, 0)), 1);
    model.setRoot(fresh);
    EXPECT_EQ(model.rowCount(model.index(0, 0)), 2);

    model.setRoot(nullptr);
    EXPECT_EQ(resets, 3);
    EXPECT_EQ(model.rowCount(), 0);
}
