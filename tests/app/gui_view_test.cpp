// The desktop view of the controller: the main window's outline, buttons,
// status line and dialogs, alone and wired to a controller on a fixture desktop.
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QThread>
#include <QTimer>
#include <QTreeView>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "app/app_delegate.h"
#include "app/shell/gui_view.h"
#include "app/shell/main_window.h"
#include "inventory/qt/outline_model.h"
#include "platform/fixture_desktop.h"
#include "preview/qt/render_view.h"
#include "tests/support/tree_builders.h"

// The shortcut step of a real key press (exported by QtGui; the test library
// presses keys the same way).
Q_GUI_EXPORT bool qt_sendShortcutOverrideEvent(QObject* o, ulong timestamp, int k, Qt::KeyboardModifiers mods,
                                               const QString& text = QString(), bool autorep = false,
                                               ushort count = 1);

#include "tests/app/wait_for.h"

using namespace pv;
using pv::test::waitFor;
namespace fs = std::filesystem;

namespace {

void pressKey(QWidget* widget, Qt::Key key, Qt::KeyboardModifiers mods = Qt::NoModifier) {
    if (qt_sendShortcutOverrideEvent(widget, 0, key, mods)) return;
    QKeyEvent press(QEvent::KeyPress, key, mods);
    QApplication::sendEvent(widget, &press);
}

// Every index of the outline, top to bottom.
std::vector<QModelIndex> allRows(const QAbstractItemModel& model, const QModelIndex& parent = {}) {
    std::vector<QModelIndex> rows;
    for (int r = 0; r < model.rowCount(parent); ++r) {
        const QModelIndex i = model.index(r, 0, parent);
        rows.push_back(i);
        const auto below = allRows(model, i);
        rows.insert(rows.end(), below.begin(), below.end());
    }
    return rows;
}

class GuiViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        tree_ = test::sampleTree();
        QObject::connect(&window_, &MainWindow::selectionChanged, [this] { ++selectionSignals_; });
    }

    OutlineModel& model() { return *window_.outlineModel(); }
    QModelIndex rowOf(const std::vector<int>& path) { return model().indexAt(path); }
    // Selects rows as a click with Ctrl held would.
    void personSelects(const QModelIndex& index) {
        window_.outline()->selectionModel()->select(index, QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }

    MainWindow window_;
    GuiView view_{window_};
    test::SampleTree tree_;
    int selectionSignals_ = 0;
};

}  // namespace

TEST_F(GuiViewTest, BusyDisablesSaveAndRefreshOnly) {
    const std::vector<QWidget*> others = {window_.fitWidthButton(), window_.fitAllButton(), window_.zoomInButton(),
                                          window_.zoomOutButton(), window_.outline(), window_.renderView()};
    view_.setBusyControls(true);
    EXPECT_FALSE(window_.saveButton()->isEnabled());
    EXPECT_FALSE(window_.refreshButton()->isEnabled());
    for (QWidget* w : others) EXPECT_TRUE(w->isEnabled()) << w->metaObject()->className();

    // A flag, not a count.
    view_.setBusyControls(true);
    view_.setBusyControls(false);
    EXPECT_TRUE(window_.saveButton()->isEnabled());
    EXPECT_TRUE(window_.refreshButton()->isEnabled());
}

TEST_F(GuiViewTest, ReloadOutlineExpandsEveryRowEachTime) {
    view_.reloadOutline(tree_.root);
    for (const QModelIndex& i : allRows(model())) {
        if (model().hasChildren(i)) {
            EXPECT_TRUE(window_.outline()->isExpanded(i)) << i.data().toString().toStdString();
        }
    }

    // What the person collapsed opens again with the next tree.
    window_.outline()->collapse(rowOf({0, 0}));
    window_.outline()->collapse(rowOf({0, 1, 0}));
    personSelects(rowOf({0, 1}));
    const int before = selectionSignals_;
    view_.reloadOutline(test::sampleTree().root);
    EXPECT_TRUE(window_.outline()->isExpanded(rowOf({0, 0})));
    EXPECT_TRUE(window_.outline()->isExpanded(rowOf({0, 1, 0})));
    // The new tree starts without a selection, and that is no selection of the person's.
    EXPECT_TRUE(view_.selectedNodes().empty());
    EXPECT_EQ(selectionSignals_, before);
}

TEST_F(GuiViewTest, SelectedNodesComeInRowOrder) {
    view_.reloadOutline(tree_.root);
    personSelects(rowOf({0, 1, 0, 0}));  // Across under the right screen
    personSelects(rowOf({0, 0, 1, 0}));  // Photo
    personSelects(rowOf({0, 0, 0, 0}));  // Across under the left screen
    personSelects(rowOf({0, 0}));        // Left
    personSelects(rowOf({0}));           // the root
    EXPECT_EQ(selectionSignals_, 5);
    EXPECT_EQ(view_.selectedNodes(),
              (std::vector<PVWindowElement::Ptr>{tree_.root, tree_.left, tree_.across, tree_.photo, tree_.across}));

    // Collapsing a row drops the selected rows it hides, and says so.
    window_.outline()->collapse(rowOf({0, 0}));
    EXPECT_EQ(selectionSignals_, 6);
    EXPECT_EQ(view_.selectedNodes(), (std::vector<PVWindowElement::Ptr>{tree_.root, tree_.left, tree_.across}));
}

TEST_F(GuiViewTest, SelectRootSelectsExactlyRowZeroWithoutTellingTheController) {
    view_.selectRoot();  // no tree yet: nothing to select
    EXPECT_TRUE(view_.selectedNodes().empty());

    view_.reloadOutline(tree_.root);
    personSelects(rowOf({0, 0, 1}));
    personSelects(rowOf({0, 1}));
    const int before = selectionSignals_;
    view_.selectRoot();
    EXPECT_EQ(view_.selectedNodes(), (std::vector<PVWindowElement::Ptr>{tree_.root}));
    EXPECT_EQ(selectionSignals_, before);
}

TEST_F(GuiViewTest, SaveDialogStartsAtTheSuggestedNameWithTheFormatsFilter) {
    struct Asked {
        QString preset, filter;
    };
    std::vector<Asked> asked;
    QString answer;
    view_.saveDialog = [&](QWidget* parent, const QString&, const QString& preset, const QString& filter) {
        EXPECT_EQ(parent, &window_);
        asked.push_back({preset, filter});
        return answer;
    };

    view_.outputFolder = [] { return std::optional<std::string>("/srv/shots"); };
    answer = "/tmp/out/capture";
    EXPECT_EQ(view_.askSaveFile("16-11-2026-17-05-09.psd", OutputFormat::GroupedPSD), "/tmp/out/capture.psd");
    EXPECT_EQ(asked.back().preset, QStringLiteral("/srv/shots/16-11-2026-17-05-09.psd"));
    EXPECT_EQ(asked.back().filter, QStringLiteral("Photoshop document (*.psd)"));

    answer = "/tmp/out/Capture.PSD";
    EXPECT_EQ(view_.askSaveFile("x.psd", OutputFormat::UngroupedPSD), "/tmp/out/Capture.PSD");
    EXPECT_EQ(asked.back().filter, QStringLiteral("Photoshop document (*.psd)"));

    // PNG; a name ending in the other format's extension still gets ".png".
    answer = "/tmp/out/desk.psd";
    EXPECT_EQ(view_.askSaveFile("16-11-2026-17-05-09.png", OutputFormat::PNG), "/tmp/out/desk.psd.png");
    EXPECT_EQ(asked.back().filter, QStringLiteral("PNG image (*.png)"));

    // No output folder: the home folder.
    view_.outputFolder = [] { return std::optional<std::string>(); };
    answer.clear();
    EXPECT_EQ(view_.askSaveFile("a.png", OutputFormat::PNG), std::nullopt);
    EXPECT_EQ(asked.back().preset, QDir::home().filePath("a.png"));
}

TEST_F(GuiViewTest, AlertHasTheMessageAndOneOkButton) {
    QString shownText;
    QStringList buttonTexts;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box) return;
        poll.stop();
        shownText = box->text();
        for (auto* b : box->buttons()) buttonTexts << b->text();
        box->buttons().constFirst()->click();
    });
    poll.start(10);
    view_.showAlert("Function:\twriteToPSD()\n\nException:\tdisk full");
    EXPECT_EQ(shownText, QStringLiteral("Function:\twriteToPSD()\n\nException:\tdisk full"));
    EXPECT_EQ(buttonTexts, QStringList{QStringLiteral("Ok")});
}

TEST_F(GuiViewTest, StatusSoundAndFinishedDocumentsReachTheShell) {
    view_.setStatus("Capturing: Notes");
    EXPECT_EQ(window_.progress()->text(), QStringLiteral("Capturing: Notes"));

    view_.playCaptureSound();  // no hook yet: nothing happens
    int sounds = 0;
    view_.onPlaySound = [&sounds] { ++sounds; };
    view_.playCaptureSound();
    EXPECT_EQ(sounds, 1);

    std::vector<std::tuple<std::string, bool, std::string>> finished;
    view_.onDocumentFinished = [&](const std::string& p, bool ok, const std::string& r) {
        finished.emplace_back(p, ok, r);
    };
    view_.documentFinished("/srv/shots/a.psd", true, "");
    EXPECT_EQ(window_.progress()->text(), QStringLiteral("Saved: /srv/shots/a.psd"));
    view_.documentFinished("/srv/shots/b.psd", false, "cannot write /srv/shots/b.psd: disk full");
    EXPECT_EQ(window_.progress()->text(), QStringLiteral("cannot write /srv/shots/b.psd: disk full"));
    ASSERT_EQ(finished.size(), 2u);
    EXPECT_EQ(finished[1], std::make_tuple(std::string("/srv/shots/b.psd"), false,
                                           std::string("cannot write /srv/shots/b.psd: disk full")));
}

TEST_F(GuiViewTest, RaiseShowsTheWindowAboveOthersAndKeysWork) {
    EXPECT_FALSE(view_.isMainWindowVisible());
    view_.raiseMainWindow();
    ASSERT_TRUE(waitFor([this] { return QApplication::activeWindow() == &window_; }));
    EXPECT_TRUE(view_.isMainWindowVisible());
    EXPECT_TRUE(window_.windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    EXPECT_EQ(window_.windowTitle(), QStringLiteral("Plenavue"));

    int quits = 0;
    QObject::connect(&window_, &MainWindow::quitRequested, [&quits] { ++quits; });
    pressKey(window_.outline(), Qt::Key_Q, Qt::ControlModifier);
    EXPECT_EQ(quits, 1);
    EXPECT_TRUE(window_.isVisible());

    pressKey(window_.outline(), Qt::Key_Escape);
    EXPECT_FALSE(window_.isVisible());
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

// What one tree keeps alive: its nodes, their pictures and the composite shown with it.
struct Held {
    std::vector<std::weak_ptr<PVWindowElement>> nodes;
    std::vector<std::weak_ptr<const Image>> pictures;

    Held(const PVWindowElement::Ptr& root, const ImagePtr& composite) {
        add(root);
        pictures.push_back(composite);
    }
    void add(const PVWindowElement::Ptr& node) {
        nodes.push_back(node);
        if (node->shot) pictures.push_back(node->shot);
        for (const auto& child : node->children()) add(child);
    }
    size_t liveNodes() const {
        return std::count_if(nodes.begin(), nodes.end(), [](const auto& n) { return !n.expired(); });
    }
    size_t livePictureBytes() const {
        size_t bytes = 0;
        for (const auto& p : pictures)
            if (auto picture = p.lock()) bytes += picture->byteCount();
        return bytes;
    }
};

// The window wired to a controller on a fixture desktop of two screens.
class GuiWithController : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("pv-gui-" + std::to_string(::getpid()) + "-" +
                                            ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        useDesktop(std::string(PV_SOURCE_DIR) + "/fixtures/two-screens.json");
        view_.onDocumentFinished = [this](const std::string& p, bool ok, const std::string& r) {
            finished_.push_back({p, ok, r});
        };
    }
    void TearDown() override {
        delegate_.reset();
        fs::remove_all(dir_);
    }

    // A new controller on the fixture desktop in that file.
    void useDesktop(const std::string& path) {
        delegate_.reset();
        desktop_ = FixtureDesktop::load(path);
        delegate_ = std::make_unique<AppDelegate>(*desktop_, view_);
        delegate_->settings.shadow = false;
        view_.connectToController(*delegate_);
    }

    struct Finished {
        std::string path;
        bool ok;
        std::string reason;
    };

    MainWindow window_;
    GuiView view_{window_};
    fs::path dir_;
    std::unique_ptr<FixtureDesktop> desktop_;
    std::unique_ptr<AppDelegate> delegate_;
    std::vector<Finished> finished_;
};

TEST_F(GuiWithController, RefreshButtonFillsTheOutlineAndThePreview) {
    window_.show();
    window_.refreshButton()->click();
    const auto root = delegate_->root();
    ASSERT_TRUE(root);
    EXPECT_EQ(window_.outlineModel()->root(), root);
    EXPECT_EQ(window_.outlineModel()->rowCount(window_.outlineModel()->index(0, 0)), 2);
    for (const QModelIndex& i : allRows(*window_.outlineModel())) {
        if (window_.outlineModel()->hasChildren(i)) {
            EXPECT_TRUE(window_.outline()->isExpanded(i));
        }
    }
    ASSERT_TRUE(window_.renderView()->image());
    EXPECT_EQ(window_.renderView()->image(), delegate_->compositeImage);
    EXPECT_LT(window_.renderView()->scale(), 1.0f);  // the desktop is fitted into the pane

    // Hidden, a refresh hands over the new tree (a hot-key capture selects
    // its row 0) but does not open its rows.
    window_.hide();
    delegate_->refresh();
    EXPECT_NE(delegate_->root(), root);
    EXPECT_EQ(window_.outlineModel()->root(), delegate_->root());
    EXPECT_FALSE(window_.outline()->isExpanded(window_.outlineModel()->index(0, 0)));
}

TEST_F(GuiWithController, HotKeyCaptureWithTheWindowHiddenWritesEveryWindow) {
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    delegate_->settings.outputFolder = dir_.string();
    delegate_->capture();
    ASSERT_TRUE(waitFor([&] { return !finished_.empty(); }));
    ASSERT_TRUE(finished_.back().ok) << finished_.back().reason;
    EXPECT_TRUE(std::filesystem::exists(finished_.back().path));
    EXPECT_FALSE(window_.isVisible());
}

TEST_F(GuiWithController, ChoosingARowPreviewsItWhileSaveAndRefreshWait) {
    window_.show();
    delegate_->refresh();
    const ImagePtr desktop = delegate_->compositeImage;
    auto* outline = window_.outline();
    // Row of the first screen's first application's first window.
    const QModelIndex row = window_.outlineModel()->indexAt({0, 0, 0, 0});
    ASSERT_TRUE(row.isValid());
    ASSERT_EQ(window_.outlineModel()->nodeAt(row)->kind, PVElementKindWindow);
    outline->selectionModel()->select(row, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);

    EXPECT_TRUE(delegate_->busy());
    EXPECT_FALSE(window_.saveButton()->isEnabled());
    EXPECT_FALSE(window_.refreshButton()->isEnabled());
    ASSERT_TRUE(waitFor([this] { return !delegate_->busy(); }));
    EXPECT_TRUE(window_.saveButton()->isEnabled());
    EXPECT_TRUE(window_.refreshButton()->isEnabled());
    EXPECT_EQ(window_.progress()->text(), QStringLiteral("Ready"));
    ASSERT_TRUE(window_.renderView()->image());
    EXPECT_NE(window_.renderView()->image(), desktop);
    EXPECT_EQ(window_.renderView()->image(), delegate_->compositeImage);

    // Save asks for a file and writes the selection there.
    view_.saveDialog = [this](QWidget*, const QString&, const QString& preset, const QString& filter) {
        EXPECT_TRUE(preset.startsWith(QDir::homePath()));
        EXPECT_EQ(filter, QStringLiteral("Photoshop document (*.psd)"));
        return QString::fromStdString((dir_ / "chosen").string());
    };
    window_.saveButton()->click();
    ASSERT_TRUE(waitFor([this] { return !finished_.empty(); }));
    EXPECT_TRUE(finished_.back().ok) << finished_.back().reason;
    EXPECT_EQ(finished_.back().path, (dir_ / "chosen.psd").string());
    EXPECT_TRUE(fs::exists(dir_ / "chosen.psd"));
    EXPECT_EQ(window_.progress()->text().toStdString(), "Saved: " + (dir_ / "chosen.psd").string());
}

TEST_F(GuiWithController, EveryRefreshFreesTheOldTreeAndItsPictures) {
    // Small, so that rounds are quick: two applications, three windows, shadows on.
    std::ofstream(dir_ / "small.json") << R"({"hostName": "h",
      "screens": [{"displayId": 1, "frame": [0, 0, 320, 200], "backingScaleFactor": 1.5}],
      "windows": [
        {"number": 1, "ownerName": "Editor", "ownerPID": 7, "title": "A", "bounds": [10, 10, 101, 77], "picture": {"fill": [200, 0, 0, 255]}},
        {"number": 2, "ownerName": "Editor", "ownerPID": 7, "title": "B", "bounds": [90, 40, 120, 90], "picture": {"fill": [0, 200, 0, 128]}},
        {"number": 3, "ownerName": "Viewer", "ownerPID": 8, "title": "C", "bounds": [200, 100, 100, 80], "picture": {"fill": [0, 0, 200, 255]}}]})";
    useDesktop((dir_ / "small.json").string());
    delegate_->settings.shadow = true;
    window_.show();
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    delegate_->settings.outputFolder = dir_.string();
    std::vector<Held> trees;
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        const size_t before = finished_.size();
        delegate_->capture();
        ASSERT_TRUE(waitFor([&] { return finished_.size() > before && !delegate_->busy(); }));
        ASSERT_TRUE(finished_.back().ok) << finished_.back().reason;
        // Then a preview of everything, as choosing the root row gives.
        window_.outline()->selectionModel()->select(window_.outlineModel()->index(0, 0),
                                                    QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        ASSERT_TRUE(waitFor([&] { return !delegate_->busy(); }));
        trees.emplace_back(delegate_->root(), delegate_->compositeImage);
        EXPECT_EQ(trees.back().liveNodes(), 7u);  // root, screen, two applications, three windows
        EXPECT_GT(trees.back().livePictureBytes(), 200'000u);
        for (size_t old = 0; old + 1 < trees.size(); ++old) {
            EXPECT_EQ(trees[old].liveNodes(), 0u) << "tree " << old;
            EXPECT_EQ(trees[old].livePictureBytes(), 0u) << "tree " << old;
        }
    }
}

TEST_F(GuiWithController, CaptureSelectsTheRootWithoutStartingAPreview) {
    window_.show();
    delegate_->settings.outputFolder = dir_.string();
    delegate_->settings.outputFormat = OutputFormat::PNG;
    delegate_->capture();
    EXPECT_EQ(view_.selectedNodes(), (std::vector<PVWindowElement::Ptr>{delegate_->root()}));
    EXPECT_FALSE(delegate_->busy());
    ASSERT_EQ(finished_.size(), 1u);
    EXPECT_TRUE(finished_[0].ok) << finished_[0].reason;
    EXPECT_EQ(fs::path(finished_[0].path).parent_path(), dir_);
    EXPECT_TRUE(fs::exists(finished_[0].path));
}
