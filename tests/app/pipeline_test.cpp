// The capture pipeline end to end on a fixture desktop: inventory, shots,
// layer stack, parallel preparation, the writer, and the busy state.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QApplication>
#include <QThread>
#include <QTimer>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "app/app_delegate.h"
#include "app/guarded_application.h"
#include "app/threads.h"
#include "cli/headless_view.h"
#include "capture/window_collection.h"
#include "platform/fixture_desktop.h"
#include "tests/core/document_test_support.h"
#include "tests/support/gated_window_server.h"
#include "tests/support/psd_tools.h"

#include "tests/app/wait_for.h"

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

const char* kBrokenOnly = R"({
  "hostName": "studio",
  "screens": [ { "displayId": 1, "frame": [0, 0, 200, 100], "backingScaleFactor": 1.0 } ],
  "windows": [ { "number": 14, "ownerName": "Broken", "ownerPID": 533, "title": "Gone",
                 "bounds": [20, 20, 50, 50], "picture": null } ]
})";

class Pipeline : public ::testing::Test {
protected:
    void SetUp() override { useDesktop(kDesktop); }
    void TearDown() override {
        gate_->open();
        delegate_.reset();
    }

    void useDesktop(const char* json) {
        if (gate_) gate_->open();
        delegate_.reset();
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

    // Runs a capture and waits until its document is finished.
    HeadlessView::Outcome captureAndWait() {
        const size_t before = outcomes_.size();
        delegate_->capture();
        EXPECT_TRUE(waitFor([&] { return outcomes_.size() > before; }));
        return outcomes_.back();
    }

    bool sawStatus(const std::string& text) const {
        return std::find(view_->statusLog.begin(), view_->statusLog.end(), text) != view_->statusLog.end();
    }
    // Files in the folder besides the desktop description.
    size_t filesWritten() const { return dir_.entries().size() - 1; }

    pvtest::ScratchDir dir_;
    std::unique_ptr<FixtureDesktop> desktop_;
    std::unique_ptr<test::GatedWindowServer> gate_;
    std::unique_ptr<HeadlessView> view_;
    std::unique_ptr<AppDelegate> delegate_;
    std::vector<HeadlessView::Outcome> outcomes_;
};

std::vector<std::string> recordNames(const std::string& path) {
    std::vector<std::string> names;
    for (const auto& r : pvtest::parsePsdFile(path).records) names.push_back(r.name);
    return names;
}

}  // namespace

TEST_F(Pipeline, CapturesInEachFormatBackToBackWriteCompleteFilesIntoTheFolder) {
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    delegate_->capture();
    delegate_->settings.outputFormat = OutputFormat::UngroupedPSD;
    delegate_->capture();
    ASSERT_TRUE(waitFor([&] { return outcomes_.size() == 2; }));
    for (const auto& o : outcomes_) {
        ASSERT_TRUE(o.ok) << o.reason;
        EXPECT_EQ(fs::path(o.path).parent_path(), dir_.path);
        EXPECT_TRUE(std::regex_match(fs::path(o.path).filename().string(),
                                     std::regex(R"(\d\d-\d\d-\d{4}-\d\d-\d\d-\d\d(-\d)?\.psd)")));
    }
    // Either may finish first.
    if (pvtest::parsePsdFile(outcomes_[0].path).layerCount != -7) std::swap(outcomes_[0], outcomes_[1]);
    const auto grouped = pvtest::parsePsdFile(outcomes_[0].path);
    EXPECT_EQ(std::tie(grouped.width, grouped.height), std::make_tuple(400u, 300u));
    // Bottom record first: each group is divider, its layers bottom to top, folder.
    // Editor's floating Notes is in front of everything, Untitled in front of Photo.
    EXPECT_EQ(recordNames(outcomes_[0].path),
              (std::vector<std::string>{"Viewer", "Photo", "Viewer", "Editor", "Untitled", "Notes", "Editor"}));
    EXPECT_EQ(grouped.records[0].sectionType, 3);
    EXPECT_EQ(grouped.records[2].sectionType, 2);
    const auto& untitled = grouped.records[4];
    EXPECT_EQ(std::tie(untitled.left, untitled.top, untitled.right, untitled.bottom), std::make_tuple(10, 10, 110, 90));
    EXPECT_NE(grouped.xmp.find(fs::path(outcomes_[0].path).filename().string()), std::string::npos);
    EXPECT_EQ(recordNames(outcomes_[1].path),
              (std::vector<std::string>{"Viewer - Photo", "Editor - Untitled", "Editor - Notes"}));
    for (const char* status : {"Compressing: Untitled", "Writing...", "Writing: Photo", "Writing composite..."})
        EXPECT_TRUE(sawStatus(status)) << status;
    EXPECT_EQ(view_->statusLog.back(), "Ready");
    EXPECT_FALSE(delegate_->busy());

    delegate_->settings.outputFormat = OutputFormat::PNG;
    const auto png = captureAndWait();
    ASSERT_TRUE(png.ok) << png.reason;
    EXPECT_EQ(pvtest::readFile(png.path).at(1), 'P');
    EXPECT_EQ(fs::path(png.path).extension(), ".png");
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
        {"no capturable window", [&] { useDesktop(kBrokenOnly); }, "no window could be captured", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const size_t before = filesWritten();
        c.setUp();
        const auto outcome = captureAndWait();
        EXPECT_FALSE(outcome.ok);
        EXPECT_NE(outcome.reason.find(c.reason), std::string::npos) << outcome.reason;
        EXPECT_FALSE(delegate_->busy());
        EXPECT_EQ(filesWritten(), before + c.inTheWay);
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
    EXPECT_TRUE(sawStatus("Capturing: Gone"));
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
    // The one document written is whole: a reader we did not write finds its three windows.
    void expectOneCompleteDocument() {
        ASSERT_EQ(outcomes_.size(), 1u);
        ASSERT_TRUE(outcomes_[0].ok) << outcomes_[0].reason;
        expectComplete(outcomes_[0].path);
    }
    void expectComplete(const std::string& path) {
        if (!test::psdToolsAvailable()) return (void)pvtest::parsePsdFile(path);
        EXPECT_EQ(test::pixelLayersOf(test::psdToolsDump(path)).size(), 3u) << path;
    }
};

TEST_F(Interleaving, ACaptureDuringAPreviewIsWrittenWhole) {
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    delegate_->refresh();
    previewHeld({delegate_->root()});
    delegate_->capture();  // refreshes: the preview of the old tree stops
    finishAll();
    expectOneCompleteDocument();
}

TEST_F(Interleaving, SaveThenSelectKeepsTheSavedDocumentWhole) {
    delegate_->settings.outputFormat = OutputFormat::UngroupedPSD;
    delegate_->settings.outputFolder.reset();
    delegate_->refresh();
    previewHeld({delegate_->root()});
    view_->saveFileAnswer = dir_ / "saved.psd";
    delegate_->save();                          // the document of every window...
    view_->selection = {windowNamed("Photo")};  // ...and at once another row
    delegate_->select();
    EXPECT_TRUE(delegate_->busy());
    finishAll();
    expectOneCompleteDocument();
    EXPECT_EQ(outcomes_[0].path, dir_ / "saved.psd");
    EXPECT_TRUE(delegate_->compositeImage);
}

TEST_F(Interleaving, SelectingAgainStopsTheRunningPreviewAndOnlyTheNewestFollows) {
    delegate_->refresh();
    previewHeld({delegate_->root()});  // held inside the first of its windows
    view_->selection = {windowNamed("Untitled")};
    delegate_->select();  // must wait for the running job, not take the same window beside it
    view_->selection = {windowNamed("Photo")};
    delegate_->select();  // replaces the waiting selection
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

TEST_F(Interleaving, APreviewFailingWhileASaveRunsLeavesTheSaveWhole) {
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    delegate_->settings.outputFolder.reset();
    delegate_->refresh();
    previewHeld({delegate_->root()});
    gate_->failOffMainThread(true);
    view_->saveFileAnswer = dir_ / "saved.psd";
    delegate_->save();
    finishAll();
    expectOneCompleteDocument();
    EXPECT_TRUE(std::any_of(view_->statusLog.begin(), view_->statusLog.end(),
                            [](const std::string& s) { return s.find("the preview failed") == 0; }));
}

TEST_F(Interleaving, TwentyCapturesInOneSecondGiveTwentyFiles) {
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    for (int i = 0; i < 20; ++i) delegate_->capture();
    ASSERT_TRUE(waitFor([&] { return outcomes_.size() == 20; }));
    std::set<std::string> paths;
    for (const auto& o : outcomes_) {
        ASSERT_TRUE(o.ok) << o.reason;
        paths.insert(o.path);
        EXPECT_NO_THROW(pvtest::parsePsdFile(o.path)) << o.path;
    }
    EXPECT_EQ(paths.size(), 20u);
    EXPECT_EQ(filesWritten(), 20u);
    expectComplete(outcomes_.back().path);
    EXPECT_FALSE(delegate_->busy());
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
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(code, 1);
    EXPECT_EQ(err, "app_tests: stopped: the picture of \"Notes\"\\nvanished\n");
    EXPECT_EQ(app->failure(), "the picture of \"Notes\"\nvanished");
}
