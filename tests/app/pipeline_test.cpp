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
#include "tests/app/psd_outline.h"
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
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("pv-pipeline-" + std::to_string(::getpid()) + "-" +
                                            ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        useDesktop(kDesktop);
    }
    void TearDown() override {
        gate_->open();
        delegate_.reset();
        fs::remove_all(dir_);
    }

    void useDesktop(const char* json) {
        if (gate_) gate_->open();
        delegate_.reset();
        const auto path = dir_ / "desktop.json";
        std::ofstream(path) << json;
        desktop_ = FixtureDesktop::load(path.string());
        gate_ = std::make_unique<test::GatedWindowServer>(*desktop_);
        view_ = std::make_unique<HeadlessView>([this] { return delegate_ ? delegate_->root() : nullptr; });
        view_->verbose = false;
        view_->onFinished = [this] { outcomes_.push_back(*view_->outcome); };
        delegate_ = std::make_unique<AppDelegate>(*gate_, *view_);
        delegate_->settings.outputFolder = dir_.string();
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

    fs::path dir_;
    std::unique_ptr<FixtureDesktop> desktop_;
    std::unique_ptr<test::GatedWindowServer> gate_;
    std::unique_ptr<HeadlessView> view_;
    std::unique_ptr<AppDelegate> delegate_;
    std::vector<HeadlessView::Outcome> outcomes_;
};

std::vector<std::string> recordNames(const test::PsdOutline& psd) {
    std::vector<std::string> names;
    for (const auto& r : psd.records) names.push_back(r.name);
    return names;
}

}  // namespace

TEST_F(Pipeline, GroupedCaptureWritesOneGroupPerApplicationIntoTheFolder) {
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    const auto outcome = captureAndWait();
    ASSERT_TRUE(outcome.ok) << outcome.reason;
    EXPECT_EQ(fs::path(outcome.path).parent_path(), dir_);
    EXPECT_TRUE(std::regex_match(fs::path(outcome.path).filename().string(),
                                 std::regex(R"(\d\d-\d\d-\d{4}-\d\d-\d\d-\d\d\.psd)")));

    const auto psd = test::readPsdOutline(outcome.path);
    ASSERT_TRUE(psd);
    EXPECT_EQ(psd->width, 400);
    EXPECT_EQ(psd->height, 300);
    EXPECT_EQ(psd->layerCount, -7);
    // Bottom record first: each group is divider, its layers bottom to top, folder.
    // Editor's floating Notes is in front of everything, Untitled in front of Photo.
    EXPECT_EQ(recordNames(*psd), (std::vector<std::string>{"Viewer", "Photo", "Viewer", "Editor", "Untitled",
                                                             "Notes", "Editor"}));
    EXPECT_EQ(psd->records[0].sectionType, 3);
    // The XMP packet names the file and the canvas.
    EXPECT_NE(psd->imageResources.find("<x:xmpmeta"), std::string::npos);
    EXPECT_NE(psd->imageResources.find(fs::path(outcome.path).filename().string()), std::string::npos);
    EXPECT_EQ(psd->records[2].sectionType, 2);
    const auto& untitled = psd->records[4];
    EXPECT_EQ((std::vector<int>{untitled.left, untitled.top, untitled.right, untitled.bottom}),
              (std::vector<int>{10, 10, 110, 90}));

    EXPECT_FALSE(delegate_->busy());
    EXPECT_TRUE(sawStatus("Compressing: Untitled"));
    EXPECT_TRUE(sawStatus("Writing..."));
    EXPECT_TRUE(sawStatus("Writing: Photo"));
    EXPECT_TRUE(sawStatus("Writing composite..."));
    EXPECT_EQ(view_->statusLog.back(), "Ready");
}

TEST_F(Pipeline, UngroupedCaptureNamesLayersAfterApplicationAndWindow) {
    delegate_->settings.outputFormat = OutputFormat::UngroupedPSD;
    const auto outcome = captureAndWait();
    ASSERT_TRUE(outcome.ok) << outcome.reason;
    const auto psd = test::readPsdOutline(outcome.path);
    ASSERT_TRUE(psd);
    // Highest level on top, then the window list's order (Untitled in front
    // of Photo). The file lists the bottom layer first.
    EXPECT_EQ(recordNames(*psd),
              (std::vector<std::string>{"Viewer - Photo", "Editor - Untitled", "Editor - Notes"}));
}

TEST_F(Pipeline, BackToBackCapturesProduceTwoCompleteFiles) {
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    delegate_->settings.outputFolder.reset();
    view_->saveFileAnswer = (dir_ / "first.psd").string();
    delegate_->capture();
    view_->saveFileAnswer = (dir_ / "second.psd").string();
    delegate_->settings.outputFormat = OutputFormat::UngroupedPSD;
    delegate_->capture();
    ASSERT_TRUE(waitFor([&] { return outcomes_.size() == 2; }));
    for (const auto& o : outcomes_) EXPECT_TRUE(o.ok) << o.reason;

    const auto first = test::readPsdOutline((dir_ / "first.psd").string());
    const auto second = test::readPsdOutline((dir_ / "second.psd").string());
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->layerCount, -7);
    EXPECT_EQ(second->layerCount, -3);
    EXPECT_EQ(first->records[5].name, "Notes");
    EXPECT_EQ(second->records[2].name, "Editor - Notes");
    EXPECT_FALSE(delegate_->busy());
}

TEST_F(Pipeline, FailedWriteLeavesNoFileKeepsTheOldOneAndEndsTheBusyState) {
    // The target name is taken by a folder: the finished document cannot be
    // put in its place, so the write fails after all the work is done.
    delegate_->settings.outputFolder.reset();
    const auto target = dir_ / "taken.psd";
    fs::create_directories(target / "inside");
    view_->saveFileAnswer = target.string();
    const auto outcome = captureAndWait();
    EXPECT_FALSE(outcome.ok);
    EXPECT_NE(outcome.reason.find(target.string()), std::string::npos) << outcome.reason;
    EXPECT_TRUE(fs::is_directory(target / "inside"));
    EXPECT_FALSE(delegate_->busy());
    // Nothing but the desktop description and the folder is left behind.
    size_t entries = 0;
    for (const auto& e : fs::directory_iterator(dir_)) entries += (e.path().filename() != "desktop.json");
    EXPECT_EQ(entries, 1u);
}

TEST_F(Pipeline, MissingFolderIsReportedWithThePath) {
    delegate_->settings.outputFolder = (dir_ / "no-such-folder").string();
    const auto outcome = captureAndWait();
    EXPECT_FALSE(outcome.ok);
    EXPECT_NE(outcome.reason.find("no-such-folder"), std::string::npos) << outcome.reason;
    EXPECT_FALSE(fs::exists(dir_ / "no-such-folder"));
    EXPECT_FALSE(delegate_->busy());
}

TEST_F(Pipeline, NoCapturableWindowEndsWithAReasonAndNoFile) {
    useDesktop(kBrokenOnly);
    const auto outcome = captureAndWait();
    EXPECT_FALSE(outcome.ok);
    EXPECT_NE(outcome.reason.find("no window could be captured"), std::string::npos) << outcome.reason;
    EXPECT_FALSE(delegate_->busy());
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 1);
}

TEST_F(Pipeline, PngCaptureWritesTheDesktopPicture) {
    delegate_->settings.outputFormat = OutputFormat::PNG;
    const auto outcome = captureAndWait();
    ASSERT_TRUE(outcome.ok) << outcome.reason;
    EXPECT_EQ(fs::path(outcome.path).extension(), ".png");
    std::ifstream in(outcome.path, std::ios::binary);
    char signature[8] = {};
    in.read(signature, 8);
    EXPECT_EQ(std::string(signature + 1, 3), "PNG");
    EXPECT_FALSE(delegate_->busy());
}

TEST_F(Pipeline, SelectionComposesInBackgroundAndReusesShots) {
    delegate_->refresh();
    view_->selection = {delegate_->root()};
    delegate_->select();
    EXPECT_TRUE(delegate_->busy());
    ASSERT_TRUE(waitFor([&] { return !delegate_->busy(); }));
    ASSERT_TRUE(delegate_->compositeImage);
    EXPECT_EQ(delegate_->compositeImage->width, 400);
    EXPECT_EQ(delegate_->compositeImage->height, 300);
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
    // The window without a picture is tried again, and is still left out.
    EXPECT_TRUE(sawStatus("Capturing: Gone"));
}

TEST_F(Pipeline, SelectingNothingChangesNothing) {
    delegate_->refresh();
    view_->selection.clear();
    delegate_->select();
    EXPECT_FALSE(delegate_->busy());
    EXPECT_TRUE(view_->statusLog.empty());
}

// ---- documents and previews at the same time --------------------------------
//
// The preview's job takes its pictures off the main thread; the gate holds it
// inside its first picture while the test starts documents on the main thread.

namespace {

// What a reader we did not write finds in a file: its pixel layers, or
// nothing when it refuses the file.
std::optional<size_t> pixelLayersReadBack(const std::string& path) {
    if (!test::psdToolsAvailable()) return test::readPsdOutline(path) ? std::optional<size_t>(0) : std::nullopt;
    try {
        return test::pixelLayersOf(test::psdToolsDump(path)).size();
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace

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
    }
    PVWindowElement::Ptr windowNamed(const std::string& name) {
        for (const auto& w : collectWindowsOf({delegate_->root()}))
            if (w->name == name) return w;
        return nullptr;
    }
    void expectComplete(const HeadlessView::Outcome& o, size_t pixelLayers) {
        ASSERT_TRUE(o.ok) << o.reason;
        EXPECT_EQ(pixelLayersReadBack(o.path), pixelLayers) << o.path;
    }
};

TEST_F(Interleaving, ACaptureDuringAPreviewIsWrittenWhole) {
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    delegate_->refresh();
    previewHeld({delegate_->root()});
    delegate_->capture();  // refreshes: the preview of the old tree stops
    finishAll();
    ASSERT_EQ(outcomes_.size(), 1u);
    expectComplete(outcomes_[0], 3);
    EXPECT_EQ(view_->statusLog.back(), "Ready");
}

TEST_F(Interleaving, SaveThenSelectKeepsTheSavedDocumentWhole) {
    delegate_->settings.outputFormat = OutputFormat::UngroupedPSD;
    delegate_->settings.outputFolder.reset();
    delegate_->refresh();
    previewHeld({delegate_->root()});
    view_->saveFileAnswer = (dir_ / "saved.psd").string();
    delegate_->save();                                   // the document of every window...
    view_->selection = {windowNamed("Photo")};           // ...and at once another row
    delegate_->select();
    EXPECT_TRUE(delegate_->busy());
    finishAll();
    ASSERT_EQ(outcomes_.size(), 1u);
    expectComplete(outcomes_[0], 3);
    EXPECT_EQ(outcomes_[0].path, (dir_ / "saved.psd").string());
    // The newest selection is what the preview shows: Photo alone, 120x90 points.
    ASSERT_TRUE(delegate_->compositeImage);
    EXPECT_EQ(view_->statusLog.back(), "Ready");
    EXPECT_LE(gate_->mostAtOnce(), 1);
}

TEST_F(Interleaving, SelectingAgainStopsTheRunningPreviewAndOnlyTheNewestFollows) {
    delegate_->refresh();
    previewHeld({windowNamed("Untitled")});
    view_->selection = {windowNamed("Untitled")};
    delegate_->select();  // must wait for the running job, not take the same window beside it
    waitFor([] { return false; }, 200);
    EXPECT_EQ(gate_->waiting(), 1);
    view_->selection = {windowNamed("Photo")};
    delegate_->select();  // replaces the waiting selection
    view_->statusLog.clear();
    finishAll();
    EXPECT_FALSE(sawStatus("Cached: Untitled"));
    EXPECT_FALSE(sawStatus("Capturing: Untitled"));
    EXPECT_TRUE(sawStatus("Capturing: Photo"));
    EXPECT_LE(gate_->mostAtOnce(), 1);
    // The pictures the jobs took reached their nodes (on the main thread).
    EXPECT_TRUE(windowNamed("Untitled")->shot);
    EXPECT_TRUE(windowNamed("Photo")->shot);
    // The preview shows the newest selection only: Photo, not Untitled.
    ASSERT_TRUE(delegate_->compositeImage);
    EXPECT_EQ(delegate_->compositeImage->row(150)[100 * 4 + 3], 128);  // inside Photo
    EXPECT_EQ(delegate_->compositeImage->row(50)[60 * 4 + 3], 0);      // inside Untitled only
    EXPECT_EQ(view_->statusLog.back(), "Ready");
}

TEST_F(Interleaving, APreviewFailingWhileASaveRunsLeavesTheSaveWhole) {
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    delegate_->settings.outputFolder.reset();
    delegate_->refresh();
    previewHeld({delegate_->root()});
    gate_->failOffMainThread(true);
    view_->saveFileAnswer = (dir_ / "saved.psd").string();
    delegate_->save();
    finishAll();
    ASSERT_EQ(outcomes_.size(), 1u);
    expectComplete(outcomes_[0], 3);
    EXPECT_TRUE(std::any_of(view_->statusLog.begin(), view_->statusLog.end(),
                            [](const std::string& s) { return s.find("the preview failed") == 0; }));
    EXPECT_FALSE(delegate_->busy());
}

TEST_F(Interleaving, TwentyCapturesInOneSecondGiveTwentyFiles) {
    delegate_->settings.outputFormat = OutputFormat::GroupedPSD;
    for (int i = 0; i < 20; ++i) delegate_->capture();
    ASSERT_TRUE(waitFor([&] { return outcomes_.size() == 20; }));
    std::set<std::string> paths;
    for (const auto& o : outcomes_) {
        ASSERT_TRUE(o.ok) << o.reason;
        paths.insert(o.path);
        EXPECT_TRUE(test::readPsdOutline(o.path)) << o.path;
    }
    EXPECT_EQ(paths.size(), 20u);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 21);  // and desktop.json
    expectComplete(outcomes_.back(), 3);
    EXPECT_FALSE(delegate_->busy());
    EXPECT_EQ(view_->statusLog.back(), "Ready");
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
