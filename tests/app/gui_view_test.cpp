// The desktop view of the controller: the main window's outline, buttons,
// status line and dialogs, alone and wired to a controller on a fixture desktop.
#include <QApplication>
#include <QDir>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QTreeView>

#include <gtest/gtest.h>

#include <algorithm>

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
                                               const QString& text = QString(), bool autorep = false,
                                               ushort count = 1);

using namespace pv;
using pv::test::waitFor;
namespace fs = std::filesystem;

namespace {

void pressKey(QWidget* widget, Qt::Key key, Qt::KeyboardModifiers mods = Qt::NoModifier) {
    if (qt_sendShortcutOverrideEvent(widget, 0, key, mods)) return;
    QKeyEvent press(QEvent::KeyPress, key, mods);
    QApplication::sendEvent(widget, &press);
}

using Nodes = std::vector<PVWindowElement::Ptr>;

// The main window and its view; with a controller on a fixture desktop once
// useDesktop is called.
class GuiFixture : public ::testing::Test {
protected:
    void SetUp() override {
        QObject::connect(&window_, &MainWindow::selectionChanged, [this] { ++selectionSignals_; });
        view_.onDocumentFinished = [this](const std::string& p, bool ok, const std::string& r) {
            finished_.push_back({p, ok, r});
        };
    }
    void TearDown() override { delegate_.reset(); }

    void useDesktop(const std::string& path) {
        delegate_.reset();
        desktop_ = FixtureDesktop::load(path);
        delegate_ = std::make_unique<AppDelegate>(*desktop_, view_);
        delegate_->settings.shadow = false;
        delegate_->settings.outputFolder = dir_.path.string();
        view_.connectToController(*delegate_);
    }
    OutlineModel& model() { return *window_.outlineModel(); }
    QModelIndex rowOf(const std::vector<int>& path) { return model().indexAt(path); }
    void personSelects(const QModelIndex& index, bool alone = false) {
        window_.outline()->selectionModel()->select(
            index, (alone ? QItemSelectionModel::ClearAndSelect : QItemSelectionModel::Select) |
                       QItemSelectionModel::Rows);
    }
    // Every row with children is open.
    void expectAllExpanded(const QModelIndex& parent = {}) {
        for (int r = 0; r < model().rowCount(parent); ++r) {
            const QModelIndex i = model().index(r, 0, parent);
            if (model().hasChildren(i)) {
                EXPECT_TRUE(window_.outline()->isExpanded(i)) << i.data().toString().toStdString();
            }
            expectAllExpanded(i);
        }
    }
    void expectLastFinished(const std::string& path) {
        ASSERT_FALSE(finished_.empty());
        EXPECT_TRUE(finished_.back().ok) << finished_.back().reason;
        EXPECT_EQ(finished_.back().path, path);
        EXPECT_TRUE(fs::exists(path)) << path;
    }

    struct Finished {
        std::string path;
        bool ok;
        std::string reason;
    };
    pvtest::ScratchDir dir_;
    MainWindow window_;
    GuiView view_{window_};
    test::SampleTree tree_ = test::sampleTree();
    int selectionSignals_ = 0;
    std::unique_ptr<FixtureDesktop> desktop_;
    std::unique_ptr<AppDelegate> delegate_;
    std::vector<Finished> finished_;
};
using GuiViewTest = GuiFixture;
using GuiWithController = GuiFixture;

}  // namespace

TEST_F(GuiViewTest, BusyDisablesSaveAndRefreshOnly) {
    view_.setBusyControls(true);
    view_.setBusyControls(true);  // a flag, not a count
    EXPECT_FALSE(window_.saveButton()->isEnabled());
    EXPECT_FALSE(window_.refreshButton()->isEnabled());
    for (QWidget* w : {(QWidget*)window_.fitWidthButton(), (QWidget*)window_.fitAllButton(),
                       (QWidget*)window_.zoomInButton(), (QWidget*)window_.zoomOutButton(),
                       (QWidget*)window_.outline(), (QWidget*)window_.renderView()})
        EXPECT_TRUE(w->isEnabled()) << w->metaObject()->className();
    view_.setBusyControls(false);
    EXPECT_TRUE(window_.saveButton()->isEnabled());
    EXPECT_TRUE(window_.refreshButton()->isEnabled());
}

TEST_F(GuiViewTest, OutlineReloadSelectionAndSelectRoot) {
    view_.selectRoot();  // no tree yet: nothing to select
    EXPECT_TRUE(view_.selectedNodes().empty());
    view_.reloadOutline(tree_.root);
    expectAllExpanded();

    // Selected rows come back in row order, whatever the order of the clicks.
    personSelects(rowOf({0, 1, 0, 0}));  // Across under the right screen
    personSelects(rowOf({0, 0, 1, 0}));  // Photo
    personSelects(rowOf({0, 0, 0, 0}));  // Across under the left screen
    personSelects(rowOf({0, 0}));        // Left
    personSelects(rowOf({0}));           // the root
    EXPECT_EQ(selectionSignals_, 5);
    EXPECT_EQ(view_.selectedNodes(), (Nodes{tree_.root, tree_.left, tree_.across, tree_.photo, tree_.across}));
    // Collapsing a row drops the selected rows it hides, and says so.
    window_.outline()->collapse(rowOf({0, 0}));
    EXPECT_EQ(selectionSignals_, 6);
    EXPECT_EQ(view_.selectedNodes(), (Nodes{tree_.root, tree_.left, tree_.across}));

    // selectRoot selects exactly row 0 without telling the controller.
    view_.selectRoot();
    EXPECT_EQ(view_.selectedNodes(), (Nodes{tree_.root}));
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

TEST_F(GuiViewTest, AlertStatusSoundAndFinishedDocumentsReachThePerson) {
    QString shownText;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box) return;
        poll.stop();
        shownText = box->text();
        box->buttons().constFirst()->click();
    });
    poll.start(10);
    view_.showAlert("Exception:\tdisk full");
    EXPECT_EQ(shownText, QStringLiteral("Exception:\tdisk full"));

    view_.setStatus("Capturing: Notes");
    EXPECT_EQ(window_.progress()->text(), QStringLiteral("Capturing: Notes"));
    view_.playCaptureSound();  // no hook yet: nothing happens
    int sounds = 0;
    view_.onPlaySound = [&sounds] { ++sounds; };
    view_.playCaptureSound();
    EXPECT_EQ(sounds, 1);

    view_.documentFinished("/srv/shots/a.psd", true, "");
    EXPECT_EQ(window_.progress()->text(), QStringLiteral("Saved: /srv/shots/a.psd"));
    view_.documentFinished("/srv/shots/b.psd", false, "disk full");
    EXPECT_EQ(window_.progress()->text(), QStringLiteral("disk full"));
    ASSERT_EQ(finished_.size(), 2u);
    EXPECT_EQ(std::tie(finished_[1].path, finished_[1].ok, finished_[1].reason),
              std::make_tuple(std::string("/srv/shots/b.psd"), false, std::string("disk full")));
}

TEST_F(GuiViewTest, RaiseShowsTheWindowAndItsKeysWork) {
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

TEST_F(GuiViewTest, PreviewButtonsActOnTheRenderView) {
    window_.show();
    view_.setPreviewImage(std::make_shared<const Image>(Image::filled(4000, 3000, 9, 9, 9, 255)));
    EXPECT_EQ(window_.renderView()->scale(), 1.0f);
    window_.fitAllButton()->click();
    const float fitted = window_.renderView()->scale();
    EXPECT_LT(fitted, 1.0f);
    window_.zoomInButton()->click();
    EXPECT_EQ(window_.renderView()->scale(), static_cast<float>(fitted * 1.1));
    window_.zoomOutButton()->click();
    EXPECT_LT(window_.renderView()->scale(), fitted);
    window_.fitWidthButton()->click();
    EXPECT_GE(window_.renderView()->scale(), fitted);
    view_.fitAll();
    EXPECT_EQ(window_.renderView()->scale(), fitted);
}

TEST_F(GuiWithController, RefreshFillsTheOutlineAndPreviewOnlyWhenShown) {
    useDesktop(std::string(PV_SOURCE_DIR) + "/fixtures/two-screens.json");
    window_.show();
    window_.refreshButton()->click();
    const auto root = delegate_->root();
    ASSERT_TRUE(root);
    EXPECT_EQ(model().root(), root);
    EXPECT_EQ(model().rowCount(rowOf({0})), 2);
    expectAllExpanded();
    ASSERT_TRUE(window_.renderView()->image());
    EXPECT_EQ(window_.renderView()->image(), delegate_->compositeImage);
    EXPECT_LT(window_.renderView()->scale(), 1.0f);  // the desktop is fitted into the pane

    // Hidden, a refresh hands over the new tree (a hot-key capture selects
    // its row 0) but does not open its rows.
    window_.hide();
    delegate_->refresh();
    EXPECT_NE(delegate_->root(), root);
    EXPECT_EQ(model().root(), delegate_->root());
    EXPECT_FALSE(window_.outline()->isExpanded(rowOf({0})));
}

TEST_F(GuiWithController, CaptureHiddenOrShownWritesAtOnceAndSelectsTheRootWithoutAPreview) {
    useDesktop(std::string(PV_SOURCE_DIR) + "/fixtures/two-screens.json");
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    delegate_->capture();
    ASSERT_TRUE(waitFor([&] { return !finished_.empty(); }));
    expectLastFinished(finished_.back().path);
    EXPECT_FALSE(window_.isVisible());

    window_.show();
    delegate_->settings.outputFormat = OutputFormat::PNG;
    delegate_->capture();
    EXPECT_EQ(view_.selectedNodes(), (Nodes{delegate_->root()}));
    EXPECT_FALSE(delegate_->busy());
    ASSERT_EQ(finished_.size(), 2u);
    expectLastFinished(finished_.back().path);
    EXPECT_EQ(fs::path(finished_.back().path).parent_path(), dir_.path);
}

TEST_F(GuiWithController, ChoosingARowPreviewsItWhileSaveAndRefreshWait) {
    useDesktop(std::string(PV_SOURCE_DIR) + "/fixtures/two-screens.json");
    delegate_->settings.outputFolder.reset();
    window_.show();
    delegate_->refresh();
    const ImagePtr desktop = delegate_->compositeImage;
    const QModelIndex row = rowOf({0, 0, 0, 0});  // the first screen's first application's first window
    ASSERT_EQ(model().nodeAt(row)->kind, PVElementKindWindow);
    personSelects(row, true);
    EXPECT_TRUE(delegate_->busy());
    EXPECT_FALSE(window_.saveButton()->isEnabled());
    EXPECT_FALSE(window_.refreshButton()->isEnabled());
    ASSERT_TRUE(waitFor([this] { return !delegate_->busy(); }));
    EXPECT_TRUE(window_.saveButton()->isEnabled());
    EXPECT_TRUE(window_.refreshButton()->isEnabled());
    EXPECT_EQ(window_.progress()->text(), QStringLiteral("Ready"));
    EXPECT_NE(window_.renderView()->image(), desktop);
    EXPECT_EQ(window_.renderView()->image(), delegate_->compositeImage);

    // Save asks for a file and writes the selection there.
    view_.saveDialog = [this](QWidget*, const QString&, const QString&, const QString&) {
        return QString::fromStdString(dir_ / "chosen");
    };
    window_.saveButton()->click();
    ASSERT_TRUE(waitFor([this] { return !finished_.empty(); }));
    expectLastFinished(dir_ / "chosen.psd");
    EXPECT_EQ(window_.progress()->text().toStdString(), "Saved: " + dir_ / "chosen.psd");
}

TEST_F(GuiWithController, EveryRefreshFreesTheOldTreeAndItsPictures) {
    // Small, so that rounds are quick: two applications, three windows, shadows on.
    pvtest::writeText(dir_.path / "small.json", R"({"hostName": "h",
      "screens": [{"displayId": 1, "frame": [0, 0, 320, 200], "backingScaleFactor": 1.5}],
      "windows": [
        {"number": 1, "ownerName": "Editor", "ownerPID": 7, "title": "A", "bounds": [10, 10, 101, 77], "picture": {"fill": [200, 0, 0, 255]}},
        {"number": 2, "ownerName": "Editor", "ownerPID": 7, "title": "B", "bounds": [90, 40, 120, 90], "picture": {"fill": [0, 200, 0, 128]}},
        {"number": 3, "ownerName": "Viewer", "ownerPID": 8, "title": "C", "bounds": [200, 100, 100, 80], "picture": {"fill": [0, 0, 200, 255]}}]})");
    useDesktop(dir_ / "small.json");
    delegate_->settings.shadow = true;
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    window_.show();
    // What each tree keeps alive: its nodes, their pictures and its composite.
    std::vector<std::vector<std::weak_ptr<const void>>> trees;
    const auto live = [](const std::vector<std::weak_ptr<const void>>& held) {
        return std::count_if(held.begin(), held.end(), [](const auto& p) { return !p.expired(); });
    };
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        const size_t before = finished_.size();
        delegate_->capture();
        ASSERT_TRUE(waitFor([&] { return finished_.size() > before && !delegate_->busy(); }));
        ASSERT_TRUE(finished_.back().ok) << finished_.back().reason;
        personSelects(rowOf({0}), true);  // then a preview of everything
        ASSERT_TRUE(waitFor([&] { return !delegate_->busy(); }));
        auto& held = trees.emplace_back(std::vector<std::weak_ptr<const void>>{delegate_->compositeImage});
        std::function<void(const PVWindowElement::Ptr&)> add = [&](const PVWindowElement::Ptr& node) {
            held.push_back(node);
            if (node->shot) held.push_back(node->shot);
            for (const auto& child : node->children()) add(child);
        };
        add(delegate_->root());
        EXPECT_EQ(live(held), 11);  // 7 nodes (root, screen, two applications, three windows), 3 shots, the composite
        for (size_t old = 0; old + 1 < trees.size(); ++old) EXPECT_EQ(live(trees[old]), 0) << "tree " << old;
    }
}
