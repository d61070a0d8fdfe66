// The capture pipeline end to end on a fixture desktop: inventory, shots,
// layer stack, parallel preparation, the writer, and the busy state.
#include <QApplication>
#include <QTimer>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>

#include "app/app_delegate.h"
#include "app/guarded_application.h"
#include "app/threads.h"
#include "capture/window_collection.h"
#include "cli/headless_view.h"
#include "platform/fixture_desktop.h"
#include "tests/app/wait_for.h"
#include "tests/core/document_test_support.h"
#include "tests/support/gated_window_server.h"
#include "tests/support/psd_tools.h"

using namespace pv;
using pv::test::waitFor;
namespace fs = std::filesystem;

namespace {

// Four windows, front to back: Editor "Untitled", Viewer "Photo", Editor
// "Notes" (a floating window, level 3), and a window of "Broken" that cannot
// be captured.
const char* kDesktop = R"({
  "hostName": "studio",
  "screens": [ { "displayId": 1, "frame": [0, 0, 400, 300], "backingScaleFactor": 1.0 } ],
  "windows": [
    { "number": 11, "ownerName": "Editor", "ownerPID": 311, "title": "Untitled",
      "bounds": [10, 10, 100, 80], "picture": { "fill": [255, 0, 0, 255] } },
    { "number": 12, "ownerName": "Viewer", "ownerPID": 422, "title": "Photo",
      "bounds": [50, 100, 120, 90], "picture": { "fill": [0, 0, 255, 128] } },
    { "number": 13, "ownerName": "Editor", "ownerPID": 311, "title": "Notes", "layer": 3,
      "bounds": [150, 20, 100, 60], "picture": { "fill": [0, 255, 0, 255] } },
    { "number": 14, "ownerName": "Broken", "ownerPID": 533, "title": "Gone",
      "bounds": [200, 150, 50, 50], "picture": null }
  ]
})";

class Pipeline : public ::testing::Test {
protected:
    void SetUp() override { useDesktop(kDesktop); }
    void TearDown() override {
        gate_->open();
        delegate_.reset();
    }

    // A new controller on this desktop, its documents going to the scratch folder.
    void useDesktop(const char* json) {
        if (gate_) gate_->open();
        delegate_.reset();
        outcomes_.clear();
        pvtest::writeText(dir_.path / "desktop.json", json);
        desktop_ = FixtureDesktop::load(dir_ / "desktop.json");
        gate_ = std::make_unique<test::GatedWindowServer>(*desktop_);
        view_ = std::make_unique<HeadlessView>([this] { return delegate_ ? delegate_->root() : nullptr; });
        view_->verbose = false;
        view_->onFinished = [this] { outcomes_.push_back(*view_->outcome); };
        delegate_ = std::make_unique<AppDelegate>(*gate_, *view_);
        delegate_->settings.outputFolder = dir_.path.string();
        delegate_->settings.shadow = false;
    }

    bool sawStatus(const std::string& text) const {
        return std::find(view_->statusLog.begin(), view_->statusLog.end(), text) != view_->statusLog.end();
    }
    // Files in the folder besides the desktop description.
    size_t filesWritten() const { return dir_.entries().size() - 1; }
    // The one document written is whole: a reader we did not write finds its three windows.
    static void expectComplete(const std::string& path) {
        if (!test::psdToolsAvailable()) return (void)pvtest::parsePsdFile(path);
        EXPECT_EQ(test::pixelLayersOf(test::psdToolsDump(path)).size(), 3u) << path;
    }

    pvtest::ScratchDir dir_;
    std::unique_ptr<FixtureDesktop> desktop_;
    std::unique_ptr<test::GatedWindowServer> gate_;
    std::unique_ptr<HeadlessView> view_;
    std::unique_ptr<AppDelegate> delegate_;
    std::vector<HeadlessView::Outcome> outcomes_;
};

}  // namespace

// Twenty captures started in one second, one ungrouped among them, then a PNG.
TEST_F(Pipeline, BackToBackCapturesEachWriteTheirOwnCompleteFileIntoTheFolder) {
    delegate_->settings.outputFormat = OutputFormat::UngroupedPSD;
    delegate_->capture();
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    for (int i = 0; i < 19; ++i) delegate_->capture();
    ASSERT_TRUE(waitFor([&] { return outcomes_.size() == 20; }));
    std::set<std::string> paths;
    for (const auto& o : outcomes_) {
        ASSERT_TRUE(o.ok) << o.reason;
        paths.insert(o.path);
        EXPECT_EQ(fs::path(o.path).parent_path(), dir_.path);
        EXPECT_TRUE(std::regex_match(fs::path(o.path).filename().string(),
                                     std::regex(R"(\d\d-\d\d-\d{4}-\d\d-\d\d-\d\d(-\d+)?\.psd)")));
    }
    EXPECT_EQ(paths.size(), 20u);
    EXPECT_EQ(filesWritten(), 20u);
    // The grouped documents have a divider and a folder record around each
    // application's two layers; the ungrouped one has the three layers alone.
    std::multiset<size_t> records;
    for (const auto& o : outcomes_) records.insert(pvtest::parsePsdFile(o.path).records.size());
    EXPECT_EQ(records.count(7), 19u);
    EXPECT_EQ(records.count(3), 1u);
    expectComplete(outcomes_.back().path);
    for (const char* status : {"Compressing: Untitled", "Writing...", "Writing: Photo", "Writing composite..."})
        EXPECT_TRUE(sawStatus(status)) << status;
    EXPECT_EQ(view_->statusLog.back(), "Ready");
    EXPECT_FALSE(delegate_->busy());

    delegate_->settings.outputFormat = OutputFormat::PNG;
    delegate_->capture();
    ASSERT_TRUE(waitFor([&] { return outcomes_.size() == 21; }));
    ASSERT_TRUE(outcomes_.back().ok) << outcomes_.back().reason;
    EXPECT_EQ(pvtest::readFile(outcomes_.back().path).at(1), 'P');
    EXPECT_EQ(fs::path(outcomes_.back().path).extension(), ".png");
}

TEST_F(Pipeline, AFailedCaptureSaysWhyLeavesNoFileAndEndsTheBusyState) {
    struct Case {
        const char* what;
        std::function<void()> setUp;
        std::string reason;
        size_t inTheWay;  // entries the test itself put in the folder
    };
    const Case cases[] = {
        // The finished document cannot be put in the place of a folder.
        {"a target taken by a folder",
         [&] {
             delegate_->settings.outputFolder.reset();
             fs::create_directories(dir_.path / "taken.psd/inside");
             view_->saveFileAnswer = dir_ / "taken.psd";
         },
         dir_ / "taken.psd", 1},
        {"a missing folder", [&] { delegate_->settings.outputFolder = dir_ / "no-such-folder"; }, "no-such-folder", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const size_t before = filesWritten();
        c.setUp();
        delegate_->capture();
        ASSERT_TRUE(waitFor([&] { return !outcomes_.empty(); }));
        EXPECT_FALSE(outcomes_.back().ok);
        EXPECT_NE(outcomes_.back().reason.find(c.reason), std::string::npos) << outcomes_.back().reason;
        EXPECT_FALSE(delegate_->busy());
        EXPECT_EQ(filesWritten(), before + c.inTheWay);
        outcomes_.clear();
    }
    EXPECT_TRUE(fs::is_directory(dir_.path / "taken.psd/inside"));
}

TEST_F(Pipeline, SelectionComposesInBackgroundAndReusesShots) {
    delegate_->refresh();
    view_->selection.clear();
    delegate_->select();  // nothing selected: nothing happens
    EXPECT_FALSE(delegate_->busy());
    EXPECT_TRUE(view_->statusLog.empty());

    view_->selection = {delegate_->root()};
    delegate_->select();
    EXPECT_TRUE(delegate_->busy());
    ASSERT_TRUE(waitFor([&] { return !delegate_->busy(); }));
    ASSERT_TRUE(delegate_->compositeImage);
    EXPECT_EQ(std::tie(delegate_->compositeImage->width, delegate_->compositeImage->height), std::make_tuple(400, 300));
    EXPECT_TRUE(sawStatus("Capturing: Untitled"));
    EXPECT_EQ(view_->statusLog.back(), "Ready");
    // The red Untitled window lies in front of nothing; its centre is red.
    const uint8_t* px = delegate_->compositeImage->row(50) + 60 * 4;
    EXPECT_EQ((std::vector<int>{px[0], px[1], px[2], px[3]}), (std::vector<int>{255, 0, 0, 255}));

    view_->statusLog.clear();
    delegate_->select();
    ASSERT_TRUE(waitFor([&] { return !delegate_->busy(); }));
    EXPECT_TRUE(sawStatus("Cached: Untitled"));
    EXPECT_FALSE(sawStatus("Capturing: Untitled"));
    EXPECT_TRUE(sawStatus("Capturing: Gone"));  // the window without a picture is tried again
}

// ---- documents and previews at the same time --------------------------------
//
// The preview's job takes its pictures off the main thread; the gate holds it
// inside its first picture while the test starts documents on the main thread.

class Interleaving : public Pipeline {
protected:
    // Selects the rows and starts the preview, held at the gate.
    void previewHeld(const std::vector<PVWindowElement::Ptr>& rows) {
        gate_->close();
        view_->selection = rows;
        delegate_->select();
        ASSERT_TRUE(waitFor([&] { return gate_->waiting() == 1; }));
    }
    void finishAll() {
        gate_->open();
        ASSERT_TRUE(waitFor([&] { return !delegate_->busy(); }));
        EXPECT_EQ(view_->statusLog.back(), "Ready");
        EXPECT_LE(gate_->mostAtOnce(), 1);  // never two pictures of one window at once
    }
    PVWindowElement::Ptr windowNamed(const std::string& name) {
        for (const auto& w : collectWindowsOf({delegate_->root()}))
            if (w->name == name) return w;
        return nullptr;
    }
};

TEST_F(Interleaving, ADocumentStartedDuringAPreviewIsWrittenWhole) {
    struct Case {
        const char* what;
        bool save, previewFails, selectAgain;
    };
    for (const Case& c : {Case{"a capture: it refreshes, the preview of the old tree stops", false, false, false},
                          Case{"a save, and at once another row selected", true, false, true},
                          Case{"a save while the preview fails", true, true, false}}) {
        SCOPED_TRACE(c.what);
        useDesktop(kDesktop);
        delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
        delegate_->refresh();
        previewHeld({delegate_->root()});
        gate_->failOffMainThread(c.previewFails);
        const std::string saved = dir_ / "saved.psd";
        view_->saveFileAnswer = saved;
        if (c.save) {
            delegate_->save();
        } else {
            delegate_->capture();
        }
        if (c.selectAgain) {
            view_->selection = {windowNamed("Photo")};
            delegate_->select();
            EXPECT_TRUE(delegate_->busy());
        }
        finishAll();
        ASSERT_EQ(outcomes_.size(), 1u);
        ASSERT_TRUE(outcomes_[0].ok) << outcomes_[0].reason;
        expectComplete(outcomes_[0].path);
        EXPECT_EQ(outcomes_[0].path == saved, c.save);
        if (c.selectAgain) {
            EXPECT_TRUE(delegate_->compositeImage);
        }
        EXPECT_EQ(std::any_of(view_->statusLog.begin(), view_->statusLog.end(),
                              [](const std::string& s) { return s.find("the preview failed") == 0; }),
                  c.previewFails);
    }
}

TEST_F(Interleaving, SelectingAgainStopsTheRunningPreviewAndOnlyTheNewestFollows) {
    delegate_->refresh();
    previewHeld({delegate_->root()});  // held inside the first of its windows
    view_->selection = {windowNamed("Untitled")};
    delegate_->select();  // must wait for the running job, not take the same window beside it
    view_->selection = {windowNamed("Photo")};
    delegate_->select();                // replaces the waiting selection
    QCoreApplication::processEvents();  // the held job's own status texts, posted before the gate
    view_->statusLog.clear();
    finishAll();
    EXPECT_FALSE(sawStatus("Cached: Untitled"));
    EXPECT_FALSE(sawStatus("Capturing: Untitled"));
    // The older job stopped after the picture it was held in: of the windows
    // only it wanted, at most that one has a picture.
    EXPECT_LE(!!windowNamed("Untitled")->shot + !!windowNamed("Notes")->shot, 1);
    EXPECT_TRUE(windowNamed("Photo")->shot);  // pictures reach their nodes (on the main thread)
    // The preview shows the newest selection only: Photo, not Untitled.
    ASSERT_TRUE(delegate_->compositeImage);
    EXPECT_EQ(delegate_->compositeImage->row(150)[100 * 4 + 3], 128);  // inside Photo
    EXPECT_EQ(delegate_->compositeImage->row(50)[60 * 4 + 3], 0);      // inside Untitled only
}

TEST(EventLoop, AnErrorEscapingATaskEndsTheLoopWithOneLineAndExitCode1) {
    auto* app = dynamic_cast<GuardedApplication<QApplication>*>(QCoreApplication::instance());
    ASSERT_TRUE(app);
    prepareMainThreadQueue();
    // Thrown on a worker thread, raised again on the main thread.
    runInBackground([] { throw std::runtime_error("the picture of \"Notes\"\nvanished"); });
    QTimer::singleShot(30000, app, [] { QCoreApplication::exit(0); });  // only against a hang
    testing::internal::CaptureStderr();
    const int code = QCoreApplication::exec();
    EXPECT_EQ(code, 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "app_tests: stopped: the picture of \"Notes\"\\nvanished\n");
    EXPECT_EQ(app->failure(), "the picture of \"Notes\"\nvanished");
}
