// Every reader shows the same picture: documents made through the controller
// (a selection previewed and saved, a capture of everything) of a desktop with
// partly transparent windows, shadows and two applications' windows
// interleaved, opened by psd-tools, ImageMagick and GIMP. Whether a reader
// shows the merged image or rebuilds the picture from the layers, it must
// show the desktop the windows make, within 2 levels.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "app/app_delegate.h"
#include "capture/window_collection.h"
#include "cli/headless_view.h"
#include "platform/drop_shadow.h"
#include "platform/fixture_desktop.h"
#include "tests/app/wait_for.h"
#include "tests/core/document_test_support.h"
#include "tests/support/psd_tools.h"
#include "tests/support/readers.h"

namespace pv::test {
namespace {

const std::string kDesktop = std::string(PV_SOURCE_DIR) + "/tests/fixtures/translucent-interleaved.json";
constexpr double kScale = 2;

// Premultiplied RGBA in floating point: the expected pictures are composed
// without rounding, so that only our file and the reader round.
struct Exact {
    int width = 0, height = 0;
    std::vector<double> rgba;
};

Exact exactOf(const Image& image) {
    return {image.width, image.height, std::vector<double>(image.pixels.begin(), image.pixels.end())};
}

// What the desktop shows of some of its windows: their pictures (framed or
// not) composed back to front over transparency, each where it stood.
Exact expectedPicture(FixtureDesktop& desktop, const std::set<std::string>& titles, bool shadow) {
    const ScreenRect screen = desktop.screenList().at(0).frame;
    Exact canvas{static_cast<int>(screen.width * kScale), static_cast<int>(screen.height * kScale), {}};
    canvas.rgba.assign(static_cast<size_t>(canvas.width) * canvas.height * 4, 0.0);
    const ShadowMargins none, margins = dropShadowMargins(kScale);
    const ShadowMargins& m = shadow ? margins : none;
    const auto windows = desktop.windowList();  // front to back, all of one level
    for (auto it = windows.rbegin(); it != windows.rend(); ++it) {
        if (!titles.count(*it->title)) continue;
        const auto picture = desktop.windowPicture(std::nullopt, it->number, shadow);
        if (!picture) continue;
        const int left = static_cast<int>(it->bounds.x * kScale) - m.left;
        const int top = static_cast<int>(it->bounds.y * kScale) - m.top;
        for (int y = std::max(0, top); y < std::min(canvas.height, top + picture->height); ++y)
            for (int x = std::max(0, left); x < std::min(canvas.width, left + picture->width); ++x) {
                const uint8_t* s = picture->row(y - top) + 4 * (x - left);
                double* d = canvas.rgba.data() + (static_cast<size_t>(y) * canvas.width + x) * 4;
                for (int c = 0; c < 4; ++c) d[c] = s[c] + d[c] * (255 - s[3]) / 255.0;
            }
    }
    return canvas;
}

enum class Backdrop { Transparency, Black };

// Pixels whose colour, seen over the backdrop, or (over transparency) whose
// alpha differs by more than 2 levels; -1 when the sizes differ.
long differing(const StraightPicture& shown, const Exact& expected, Backdrop backdrop) {
    if (shown.width != expected.width || shown.height != expected.height) return -1;
    long count = 0;
    for (size_t i = 0; i < shown.rgba.size(); i += 4) {
        const double* a = shown.rgba.data() + i;     // straight
        const double* b = expected.rgba.data() + i;  // premultiplied
        // Seen over white, a pixel adds the white it does not cover.
        const double whiteA = backdrop == Backdrop::Transparency ? 255 - a[3] : 0;
        const double whiteB = backdrop == Backdrop::Transparency ? 255 - b[3] : 0;
        bool same = backdrop == Backdrop::Black || std::abs(a[3] - b[3]) <= 2;
        for (int c = 0; c < 3; ++c) same = same && std::abs((a[c] * a[3] / 255.0 + whiteA) - (b[c] + whiteB)) <= 2;
        count += !same;
    }
    return count;
}

class ReaderPictures : public ::testing::Test {
protected:
    void SetUp() override {
        desktop_ = FixtureDesktop::load(kDesktop);
        view_ = std::make_unique<HeadlessView>([this] { return delegate_ ? delegate_->root() : nullptr; });
        view_->verbose = false;
        delegate_ = std::make_unique<AppDelegate>(*desktop_, *view_);
        delegate_->settings.outputFolder.reset();
    }

    // The rows previewed, then saved to `name`; the path written.
    std::string saveSelection(const std::string& name, const std::set<std::string>& titles, OutputFormat format) {
        delegate_->settings.shadow = true;
        delegate_->settings.outputFormat = format;
        delegate_->refresh();
        view_->selection.clear();
        if (titles.empty()) view_->selection = {delegate_->root()};
        for (const auto& w : collectWindowsOf({delegate_->root()}))
            if (titles.count(w->name) &&
                std::none_of(view_->selection.begin(), view_->selection.end(), [&](const auto& s) { return s == w; }))
                view_->selection.push_back(w);
        delegate_->select();
        EXPECT_TRUE(waitFor([&] { return !delegate_->busy(); }));
        return finished([&] { delegate_->save(); }, name);
    }

    // A capture of everything, without shadows, into `name`.
    std::string captureAll(const std::string& name, OutputFormat format) {
        delegate_->settings.shadow = false;
        delegate_->settings.outputFormat = format;
        return finished([&] { delegate_->capture(); }, name);
    }

    std::string finished(const std::function<void()>& start, const std::string& name) {
        view_->outcome.reset();
        view_->saveFileAnswer = dir_ / name;
        start();
        EXPECT_TRUE(waitFor([&] { return view_->outcome.has_value() && !delegate_->busy(); }));
        EXPECT_TRUE(view_->outcome && view_->outcome->ok) << (view_->outcome ? view_->outcome->reason : "no outcome");
        return dir_ / name;
    }

    pvtest::ScratchDir dir_;
    std::unique_ptr<FixtureDesktop> desktop_;
    std::unique_ptr<HeadlessView> view_;
    std::unique_ptr<AppDelegate> delegate_;
};

TEST_F(ReaderPictures, EveryReaderShowsTheDesktopTheWindowsMake) {
    for (ReaderView v : kReaderViews)
        if (!readerAvailable(v)) GTEST_SKIP() << nameOf(v) << " cannot run here";

    const std::set<std::string> all{"Glass", "Notes", "bash", "Draft", "Photo"};
    // Viewer over Terminal over Editor: groups in that order show it as it is.
    const std::set<std::string> notInterleaved{"Glass", "bash", "Draft"};
    struct Document {
        std::string what;
        std::string path;
        Exact expected;
        Backdrop backdrop;
    };
    const std::vector<Document> documents{
        {"saved selection, ungrouped, interleaved, shadows",
         saveSelection("selection-ungrouped.psd", {}, OutputFormat::UngroupedPSD),
         expectedPicture(*desktop_, all, true), Backdrop::Transparency},
        {"saved selection, grouped, shadows",
         saveSelection("selection-grouped.psd", notInterleaved, OutputFormat::GroupedPSD),
         expectedPicture(*desktop_, notInterleaved, true), Backdrop::Transparency},
        // The desktop picture is opaque black where no window is; the layers are transparent there.
        {"capture of everything, ungrouped, interleaved", captureAll("everything.psd", OutputFormat::UngroupedPSD),
         exactOf(*desktop_->desktopPicture()), Backdrop::Black},
    };

    std::vector<std::string> files;
    for (const auto& d : documents) files.push_back(d.path);
    const auto shown = readerPictures(files, dir_.path.string());
    for (const auto& d : documents) {
        for (ReaderView v : kReaderViews) {
            SCOPED_TRACE(d.what + ", " + nameOf(v));
            const auto it = shown.find({d.path, v});
            ASSERT_NE(it, shown.end()) << "the reader did not open the file";
            EXPECT_EQ(differing(it->second, d.expected, d.backdrop), 0) << "pixels more than 2 levels off";
        }
    }

    // A capture of everything keeps the desktop picture, opaque, as it is.
    const auto merged = fromBase64(psdToolsDump(documents[2].path, true)["merged"]["rgba"].get<std::string>());
    EXPECT_TRUE(merged == desktop_->desktopPicture()->pixels);
}

}  // namespace
}  // namespace pv::test
