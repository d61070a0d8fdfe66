// The main window's parts: the outline's rows over an inventory tree, the
// preview widget in its scroll area, and the desktop view of the controller
// (outline, buttons, status line and dialogs), alone and wired to a
// controller on a fixture desktop.
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QIcon>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeView>

#include <gtest/gtest.h>

#include "app/app_delegate.h"
#include "app/shell/gui_view.h"
#include "app/shell/main_window.h"
#include "inventory/qt/outline_model.h"
#include "platform/fixture_desktop.h"
#include "preview/qt/render_view.h"
#include "tests/app/wait_for.h"
#include "tests/core/document_test_support.h"
#include "tests/support/tree_builders.h"

// The shortcut step of a real key press (exported by QtGui; the test library
// presses keys the same way).
Q_GUI_EXPORT bool qt_sendShortcutOverrideEvent(QObject* o, ulong timestamp, int k, Qt::KeyboardModifiers mods,
                                               const QString& text = QString(), bool autorep = false, ushort count = 1);

using namespace pv;
using pv::test::waitFor;
namespace fs = std::filesystem;

namespace {

using Nodes = std::vector<PVWindowElement::Ptr>;

// Every index of the model, depth-first pre-order.
std::vector<QModelIndex> allRows(const QAbstractItemModel& model, const QModelIndex& parent = {}) {
    std::vector<QModelIndex> rows;
    for (int r = 0; r < model.rowCount(parent); ++r) {
        rows.push_back(model.index(r, 0, parent));
        const auto below = allRows(model, rows.back());
        rows.insert(rows.end(), below.begin(), below.end());
    }
    return rows;
}

ImagePtr picture(int w, int h, uint8_t b = 180) {
    return std::make_shared<const Image>(Image::filled(w, h, 0, 0, b, 255));
}

}  // namespace

// ---- the outline's rows ---------------------------------------------------------

TEST(OutlineModel, RowsFollowTheTreeInPreOrderAndEachNodeHasThePathOfItsFirstRow) {
    const test::SampleTree t = test::sampleTree();
    OutlineModel model;
    model.setRoot(t.root);
    EXPECT_EQ(model.rowCount(), 1);
    EXPECT_FALSE(model.index(0, 1).isValid());
    // The shared window has a row under each screen's application; an
    // application without windows is a leaf.
    Nodes nodes;
    for (const QModelIndex& i : allRows(model)) {
        nodes.push_back(model.nodeAt(i));
        EXPECT_EQ(model.index(i.row(), 0, model.parent(i)), i);
        EXPECT_EQ(model.data(i).toString().toStdString(), model.nodeAt(i)->displayName());
        EXPECT_TRUE(model.flags(i).testFlag(Qt::ItemIsSelectable));
        // Paths lead back to the node's first row.
        EXPECT_EQ(model.nodeAt(model.indexAt(model.indexPathOf(model.nodeAt(i)))), model.nodeAt(i));
    }
    EXPECT_EQ(nodes, (Nodes{t.root, t.left, t.leftEditor, t.across, t.notes, t.viewer, t.photo, t.right, t.rightEditor,
                            t.across, t.terminal}));
    EXPECT_FALSE(model.hasChildren(model.indexAt({0, 1, 1})));
    EXPECT_EQ(model.indexPathOf(t.photo), (std::vector<int>{0, 0, 1, 0}));
    EXPECT_EQ(model.indexPathOf(t.across), (std::vector<int>{0, 0, 0, 0}));  // under the first screen
    EXPECT_EQ(model.nodeAt(model.parent(model.parent(model.indexOf(t.across.get())))), t.left);
    // An equal-looking node that is not in the tree has no row.
    const auto stranger = test::makeNode(PVElementKindWindow, "Across", {1240, 100, 400, 300}, 51);
    EXPECT_TRUE(model.indexPathOf(stranger).empty());
    EXPECT_FALSE(model.indexOf(stranger.get()).isValid());
    EXPECT_FALSE(model.indexAt({0, 2}).isValid());
    EXPECT_FALSE(model.indexAt({-1}).isValid());

    // The rows are those of the tree at setRoot: a later change shows only
    // after the next reset.
    int resets = 0;
    QObject::connect(&model, &QAbstractItemModel::modelReset, [&resets] { ++resets; });
    t.right->addChild(test::makeNode(PVElementKindApplication, "Late", {}, 10));
    EXPECT_EQ(model.rowCount(model.indexAt({0, 1})), 2);
    model.setRoot(t.root);
    EXPECT_EQ(model.rowCount(model.indexAt({0, 1})), 3);
    model.setRoot(nullptr);
    EXPECT_EQ(resets, 2);
    EXPECT_EQ(model.rowCount(), 0);
    EXPECT_TRUE(model.indexPathOf(t.across).empty());
}

// Application rows carry their program's icon: from the icon theme by name,
// or a file by its absolute path; names show as they are.
TEST(OutlineModel, ApplicationRowsShowTheirProgramsIconAndName) {
    const QTemporaryDir dir;
    const QString theme = dir.filePath("icons/pv-test");
    ASSERT_TRUE(QDir().mkpath(theme + "/16x16/apps"));
    QFile index(theme + "/index.theme");
    ASSERT_TRUE(index.open(QIODevice::WriteOnly));
    index.write("[Icon Theme]\nName=pv-test\nDirectories=16x16/apps\n\n[16x16/apps]\nSize=16\nType=Fixed\n");
    index.close();
    const auto save = [](const QString& path, Qt::GlobalColor colour) {
        QImage image(16, 16, QImage::Format_ARGB32);
        image.fill(colour);
        return image.save(path);
    };
    ASSERT_TRUE(save(theme + "/16x16/apps/pv-viewer.png", Qt::red));
    ASSERT_TRUE(save(dir.filePath("editor.png"), Qt::blue));
    const QStringList searchPaths = QIcon::themeSearchPaths();
    const QString themeName = QIcon::themeName();
    QIcon::setThemeSearchPaths({dir.filePath("icons")});
    QIcon::setThemeName("pv-test");

    test::SampleTree t = test::sampleTree();
    t.viewer->name = "Visionneuse \xE2\x9C\x93";
    t.viewer->iconName = "pv-viewer";
    t.leftEditor->iconName = dir.filePath("editor.png").toStdString();
    t.terminal->iconName = "pv-no-such-icon";
    t.notes->iconName = "pv-viewer";  // only application rows show one
    OutlineModel model;
    model.setRoot(t.root);
    const auto colourOf = [&](const PVWindowElement::Ptr& node) {
        const QVariant icon = model.data(model.indexOf(node.get()), Qt::DecorationRole);
        return icon.isValid() ? icon.value<QIcon>().pixmap(16).toImage().pixelColor(8, 8) : QColor();
    };
    EXPECT_EQ(colourOf(t.viewer), QColor(Qt::red));
    EXPECT_EQ(colourOf(t.leftEditor), QColor(Qt::blue));
    EXPECT_EQ(colourOf(t.terminal), QColor());
    EXPECT_EQ(colourOf(t.notes), QColor());
    EXPECT_EQ(model.data(model.indexOf(t.viewer.get())).toString(), QString::fromUtf8("Visionneuse \u2713 (pid: 422)"));
    QIcon::setThemeSearchPaths(searchPaths);
    QIcon::setThemeName(themeName);
}

// ---- the preview widget -----------------------------------------------------------
//
// A view in a frameless scroll area of 816 by 616: the content size leaves
// 800 by 600 inside the margins.

TEST(RenderView, ThePaneShowsTheCheckerboardThePictureCentredAndScrollsWhatDoesNotFit) {
    QScrollArea area;
    area.setFrameShape(QFrame::NoFrame);
    auto* view = new RenderView;
    area.setWidget(view);
    area.resize(816, 616);
    area.show();
    QApplication::processEvents();
    const auto pixel = [&](int x, int y) { return view->grab().toImage().pixel(x, y); };
    EXPECT_EQ(view->size(), area.viewport()->size());
    EXPECT_EQ(pixel(2, 2), qRgb(255, 255, 255));
    EXPECT_EQ(pixel(10, 2), qRgb(204, 204, 204));

    view->setImage(picture(400, 300));
    EXPECT_EQ(view->size(), area.viewport()->size());
    EXPECT_EQ(view->pictureRect(), (Rect{208, 8, 400, 300}));
    EXPECT_EQ(view->renderGeometry().pointerOffsetX(), 208.0f);
    EXPECT_EQ(pixel(208, 8), qRgb(0, 0, 180));
    EXPECT_EQ(pixel(607, 307), qRgb(0, 0, 180));
    EXPECT_EQ(pixel(608, 100), qRgb(255, 255, 255));  // checker square (12, 76): even
    // Resizing the pane resizes the view and centres the picture again.
    area.resize(1000, 700);
    QApplication::processEvents();
    EXPECT_EQ(view->size(), area.viewport()->size());
    EXPECT_EQ(view->pictureRect()->x, 300);
    area.resize(816, 616);

    // At scale 1 a large picture scrolls; fitted whole it scrolls nowhere;
    // fitted by its width it leaves its height to scroll.
    view->setImage(picture(2880, 1800));
    EXPECT_EQ(view->size(), QSize(2896, 1816));
    view->fitAll();
    QApplication::processEvents();
    EXPECT_EQ(view->size(), QSize(816, 616));
    EXPECT_EQ(area.horizontalScrollBar()->maximum() + area.verticalScrollBar()->maximum(), 0);
    EXPECT_EQ(pixel(400, 200), qRgb(0, 0, 180));
    view->setImage(picture(1600, 2400));
    view->fitWidth();
    QApplication::processEvents();
    const int bar = area.verticalScrollBar()->sizeHint().width();
    EXPECT_EQ(view->scale(), static_cast<float>((800.0 - bar) / 1600.0));
    EXPECT_EQ(area.horizontalScrollBar()->maximum(), 0);
    EXPECT_GT(area.verticalScrollBar()->maximum(), 0);

    // Zooms grow the view past the pane and shrink it back to cover the pane.
    view->setImage(picture(800, 300));
    view->fitAll();  // at most scale 1
    view->zoomIn();
    QApplication::processEvents();
    EXPECT_EQ(view->size().width(), 896);  // 880 + margins
    EXPECT_GT(area.horizontalScrollBar()->maximum(), 0);
    view->zoomOut();
    view->zoomOut();
    QApplication::processEvents();
    EXPECT_EQ(view->size(), area.viewport()->size());
    const Rect r = *view->pictureRect();
    EXPECT_NEAR(r.x + r.width / 2, area.viewport()->width() / 2.0, 0.5);
    view->setImage(nullptr);
    EXPECT_FALSE(view->pictureRect());
}

// ---- the desktop view of the controller ------------------------------------------

namespace {

void pressKey(QWidget* widget, Qt::Key key, Qt::KeyboardModifiers mods = Qt::NoModifier) {
    if (qt_sendShortcutOverrideEvent(widget, 0, key, mods)) return;
    QKeyEvent press(QEvent::KeyPress, key, mods);
    QApplication::sendEvent(widget, &press);
}

struct Finished {
    std::string path;
    bool ok;
    std::string reason;
};

// The main window and its view; with a controller on a fixture desktop in
// GuiWithController.
class GuiViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        QObject::connect(&window_, &MainWindow::selectionChanged, [this] { ++selectionSignals_; });
        view_.onDocumentFinished = [this](const std::string& p, bool ok, const std::string& r) {
            finished_.push_back({p, ok, r});
        };
    }
    OutlineModel& model() { return *window_.outlineModel(); }
    QModelIndex rowOf(const std::vector<int>& path) { return model().indexAt(path); }
    void personSelects(const QModelIndex& index, bool alone = false) {
        window_.outline()->selectionModel()->select(
            index,
            (alone ? QItemSelectionModel::ClearAndSelect : QItemSelectionModel::Select) | QItemSelectionModel::Rows);
    }
    void expectAllExpanded() {
        for (const QModelIndex& i : allRows(model())) {
            if (model().hasChildren(i)) {
                EXPECT_TRUE(window_.outline()->isExpanded(i)) << model().nodeAt(i)->name;
            }
        }
    }
    // The count-th document ended, written where expected.
    void expectWritten(size_t count, const std::function<bool(const fs::path&)>& rightPlace) {
        ASSERT_TRUE(waitFor([&] { return finished_.size() == count; }));
        EXPECT_TRUE(finished_.back().ok) << finished_.back().reason;
        EXPECT_TRUE(rightPlace(finished_.back().path) && fs::exists(finished_.back().path)) << finished_.back().path;
    }

    pvtest::ScratchDir dir_;
    MainWindow window_;
    GuiView view_{window_};
    int selectionSignals_ = 0;
    std::vector<Finished> finished_;
};

}  // namespace

TEST_F(GuiViewTest, OutlineReloadSelectionAndSelectRoot) {
    const test::SampleTree tree = test::sampleTree();
    view_.selectRoot();  // no tree yet: nothing to select
    EXPECT_TRUE(view_.selectedNodes().empty());
    view_.reloadOutline(tree.root);
    expectAllExpanded();

    // Selected rows come back in row order, whatever the order of the clicks.
    personSelects(rowOf({0, 1, 0, 0}));  // Across under the right screen
    personSelects(rowOf({0, 0, 1, 0}));  // Photo
    personSelects(rowOf({0, 0, 0, 0}));  // Across under the left screen
    personSelects(rowOf({0, 0}));        // Left
    personSelects(rowOf({0}));           // the root
    EXPECT_EQ(selectionSignals_, 5);
    EXPECT_EQ(view_.selectedNodes(), (Nodes{tree.root, tree.left, tree.across, tree.photo, tree.across}));
    // Collapsing a row drops the selected rows it hides, and says so.
    window_.outline()->collapse(rowOf({0, 0}));
    EXPECT_EQ(selectionSignals_, 6);
    EXPECT_EQ(view_.selectedNodes(), (Nodes{tree.root, tree.left, tree.across}));

    // selectRoot selects exactly row 0 without telling the controller.
    view_.selectRoot();
    EXPECT_EQ(view_.selectedNodes(), (Nodes{tree.root}));
    EXPECT_EQ(selectionSignals_, 6);

    // The next tree opens every row again and starts without a selection,
    // which is no selection of the person's.
    window_.outline()->collapse(rowOf({0, 1, 0}));
    view_.reloadOutline(test::sampleTree().root);
    expectAllExpanded();
    EXPECT_TRUE(view_.selectedNodes().empty());
    EXPECT_EQ(selectionSignals_, 6);
}

TEST_F(GuiViewTest, SaveDialogStartsAtTheSuggestedNameAndAddsTheExtension) {
    QString preset, answer;
    view_.saveDialog = [&](QWidget* parent, const QString&, const QString& p, const QString&) {
        EXPECT_EQ(parent, &window_);
        preset = p;
        return answer;
    };
    view_.outputFolder = [] { return std::optional<std::string>("/srv/shots"); };
    struct Case {
        const char* answer;
        OutputFormat format;
        std::optional<std::string> path;
    };
    for (const Case& c : {Case{"/tmp/out/capture", OutputFormat::GroupedPSD, "/tmp/out/capture.psd"},
                          Case{"/tmp/out/Capture.PSD", OutputFormat::UngroupedPSD, "/tmp/out/Capture.PSD"},
                          Case{"/tmp/out/desk.psd", OutputFormat::PNG, "/tmp/out/desk.psd.png"},
                          Case{"", OutputFormat::PNG, std::nullopt}}) {
        answer = c.answer;
        EXPECT_EQ(view_.askSaveFile("16-11-2026-17-05-09.psd", c.format), c.path) << c.answer;
        EXPECT_EQ(preset, QStringLiteral("/srv/shots/16-11-2026-17-05-09.psd"));
    }
    view_.outputFolder = [] { return std::optional<std::string>(); };  // no folder: the home folder
    view_.askSaveFile("a.png", OutputFormat::PNG);
    EXPECT_EQ(preset, QDir::home().filePath("a.png"));
}

TEST_F(GuiViewTest, AlertsAndFailuresReachThePersonAndTheWindowsKeysWork) {
    QString shownText;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            poll.stop();
            shownText = box->text();
            box->buttons().constFirst()->click();
        }
    });
    poll.start(10);
    view_.showAlert("Exception:\tdisk full");
    EXPECT_EQ(shownText, QStringLiteral("Exception:\tdisk full"));
    view_.documentFinished("/srv/shots/b.psd", false, "disk full");
    EXPECT_EQ(window_.progress()->text(), QStringLiteral("disk full"));
    ASSERT_EQ(finished_.size(), 1u);
    EXPECT_EQ(finished_[0].reason, "disk full");

    EXPECT_FALSE(view_.isMainWindowVisible());
    view_.raiseMainWindow();
    ASSERT_TRUE(waitFor([this] { return QApplication::activeWindow() == &window_; }));
    EXPECT_TRUE(view_.isMainWindowVisible());
    int quits = 0;
    QObject::connect(&window_, &MainWindow::quitRequested, [&quits] { ++quits; });
    pressKey(window_.outline(), Qt::Key_Q, Qt::ControlModifier);
    EXPECT_EQ(quits, 1);
    EXPECT_TRUE(window_.isVisible());
    pressKey(window_.outline(), Qt::Key_Escape);
    EXPECT_FALSE(view_.isMainWindowVisible());
}

// A hot-key capture while the window is hidden, then the person at the
// window: refresh, the preview's buttons, a row previewed and saved, a capture.
TEST_F(GuiViewTest, WithAControllerCapturesRefreshesPreviewsAndSavesThroughTheWindow) {
    const auto desktop = FixtureDesktop::load(std::string(PV_SOURCE_DIR) + "/fixtures/two-screens.json");
    AppDelegate delegate(*desktop, view_);
    delegate.settings.outputFolder = dir_.path.string();
    delegate.settings.outputFormat = OutputFormat::GroupedPSD;
    delegate.settings.shadow = false;
    view_.connectToController(delegate);
    const auto inFolder = [this](const fs::path& p) { return p.parent_path() == dir_.path; };
    // What a tree keeps alive: its nodes, their pictures and the composite.
    const auto held = [&delegate] {
        std::vector<std::weak_ptr<const void>> alive{delegate.compositeImage};
        std::function<void(const PVWindowElement::Ptr&)> add = [&](const PVWindowElement::Ptr& node) {
            alive.push_back(node);
            if (node->shot) alive.push_back(node->shot);
            for (const auto& child : node->children()) add(child);
        };
        add(delegate.root());
        return alive;
    };

    // Hidden, a capture writes at once and hands over the new tree (it
    // selects its row 0) but does not open its rows.
    delegate.capture();
    expectWritten(1, inFolder);
    EXPECT_FALSE(window_.isVisible());
    EXPECT_EQ(model().root(), delegate.root());
    EXPECT_FALSE(window_.outline()->isExpanded(rowOf({0})));
    const auto captured = held();
    EXPECT_EQ(captured.size(), 18u);  // 12 rows, a picture for each window row, the composite

    window_.show();
    window_.refreshButton()->click();
    EXPECT_EQ(model().root(), delegate.root());
    expectAllExpanded();
    EXPECT_EQ(window_.renderView()->image(), delegate.compositeImage);
    const float fitted = window_.renderView()->scale();
    EXPECT_LT(fitted, 1.0f);  // the desktop is fitted into the pane
    window_.zoomInButton()->click();
    EXPECT_EQ(window_.renderView()->scale(), static_cast<float>(fitted * 1.1));
    window_.zoomOutButton()->click();
    EXPECT_LT(window_.renderView()->scale(), fitted);
    window_.fitWidthButton()->click();
    EXPECT_GE(window_.renderView()->scale(), fitted);
    window_.fitAllButton()->click();
    EXPECT_EQ(window_.renderView()->scale(), fitted);

    // Choosing a row previews it while Save and Refresh wait.
    const ImagePtr whole = delegate.compositeImage;
    ASSERT_EQ(model().nodeAt(rowOf({0, 0, 0, 0}))->kind, PVElementKindWindow);
    personSelects(rowOf({0, 0, 0, 0}), true);
    EXPECT_TRUE(delegate.busy());
    EXPECT_FALSE(window_.saveButton()->isEnabled() || window_.refreshButton()->isEnabled());
    ASSERT_TRUE(waitFor([&] { return !delegate.busy(); }));
    EXPECT_TRUE(window_.saveButton()->isEnabled() && window_.refreshButton()->isEnabled());
    EXPECT_EQ(window_.progress()->text(), QStringLiteral("Ready"));
    EXPECT_NE(window_.renderView()->image(), whole);
    EXPECT_EQ(window_.renderView()->image(), delegate.compositeImage);

    // Save asks for a file and writes the selection there.
    view_.saveDialog = [this](QWidget*, const QString&, const QString&, const QString&) {
        return QString::fromStdString(dir_ / "chosen");
    };
    window_.saveButton()->click();
    expectWritten(2, [&](const fs::path& p) { return p == dir_.path / "chosen.psd"; });
    EXPECT_EQ(window_.progress()->text().toStdString(), "Saved: " + dir_ / "chosen.psd");
    const auto saved = held();

    // Shown, a capture also writes at once, and selects the root without a preview.
    delegate.settings.outputFormat = OutputFormat::PNG;
    delegate.capture();
    EXPECT_EQ(view_.selectedNodes(), (Nodes{delegate.root()}));
    EXPECT_FALSE(delegate.busy());
    expectWritten(3, inFolder);

    // Then a preview of everything; the earlier trees and their pictures are gone.
    personSelects(rowOf({0}), true);
    ASSERT_TRUE(waitFor([&] { return !delegate.busy(); }));
    for (const auto& tree : {captured, saved})
        EXPECT_TRUE(std::all_of(tree.begin(), tree.end(), [](const auto& p) { return p.expired(); }));
}
