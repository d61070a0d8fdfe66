// The fixture desktop: what it reports of the shipped fixtures, the pictures
// it makes, and how it rejects bad files.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <thread>

#include "platform/drop_shadow.h"
#include "platform/fixture_desktop.h"
#include "tests/core/document_test_support.h"

namespace pv {
namespace {

std::string fixture(const std::string& name) { return std::string(PV_SOURCE_DIR) + "/fixtures/" + name; }

const uint8_t* pixelAt(const Image& image, int x, int y) { return image.row(y) + static_cast<size_t>(x) * 4; }

std::vector<int> rgba(const Image& image, int x, int y) {
    const uint8_t* p = pixelAt(image, x, y);
    return {p[0], p[1], p[2], p[3]};
}

TEST(FixtureDesktop, EveryShippedFixtureLoadsAndReportsItsScreensAndWindows) {
    for (const char* name : {"one-screen.json", "two-screens.json", "busy-desktop.json", "names.json"}) {
        SCOPED_TRACE(name);
        auto desktop = FixtureDesktop::load(fixture(name));
        EXPECT_FALSE(desktop->screenList().empty());
        EXPECT_GE(desktop->windowList().size(), 4u);
        auto picture = desktop->desktopPicture();
        ASSERT_TRUE(picture);
        EXPECT_FALSE(picture->isNull());
    }
    auto desktop = FixtureDesktop::load(fixture("two-screens.json"));
    EXPECT_EQ(desktop->hostName(), "studio");
    const auto screens = desktop->screenList();
    ASSERT_EQ(screens.size(), 2u);
    EXPECT_EQ(screens[1].frame, (ScreenRect{1440, 0, 1920, 1200}));
    EXPECT_EQ(desktop->productName(2), "Studio 24");
    EXPECT_FALSE(desktop->productName(99));
    const auto windows = desktop->windowList();
    ASSERT_EQ(windows.size(), 4u);
    EXPECT_EQ(windows[0].number, 51u);  // file order is front to back
    EXPECT_EQ(windows[3].layer, 3);
}

TEST(FixtureDesktop, PicturesAreFillsAtTheLargestScaleTheWindowTouchesOrPngFilesAsTheyAre) {
    auto desktop = FixtureDesktop::load(fixture("two-screens.json"));
    auto across = desktop->windowPicture(std::nullopt, 51, false);  // on both screens: scale 2
    ASSERT_TRUE(across);
    EXPECT_EQ(std::tie(across->width, across->height), std::make_tuple(800, 600));
    EXPECT_EQ(rgba(*across, 10, 10), (std::vector<int>{200, 40, 40, 255}));
    EXPECT_EQ(desktop->windowPicture(std::nullopt, 54, false)->width, 600);  // second screen only: scale 1
    EXPECT_EQ(desktop->displaysOfRect({1240, 100, 400, 300}, 2), (std::vector<uint32_t>{1, 2}));
    EXPECT_EQ(desktop->displaysOfRect({1240, 100, 400, 300}, 1), (std::vector<uint32_t>{1}));
    // Above the main screen, but inside the taller second one.
    EXPECT_EQ(desktop->displaysOfRect({1700, -200, 500, 300}, 2), (std::vector<uint32_t>{2}));
    EXPECT_EQ(desktop->displaysOfRect({1340, 100, 100, 100}, 2),
              (std::vector<uint32_t>{1}));  // touching edges do not meet
    EXPECT_TRUE(desktop->displaysOfRect({-900, 0, 100, 100}, 2)->empty());

    auto one = FixtureDesktop::load(fixture("one-screen.json"));
    auto photo = one->windowPicture(std::nullopt, 44, false);
    ASSERT_TRUE(photo);
    EXPECT_EQ(std::tie(photo->width, photo->height), std::make_tuple(240, 160));  // as it is, whatever the bounds
    EXPECT_NEAR(pixelAt(*photo, 0, 0)[3], 128, 1);  // the half-transparent border survives
    EXPECT_FALSE(one->windowPicture(std::nullopt, 12345, true));
    // Taken by a rectangle, a window still gives its own picture; framed, with the shadow's margins.
    auto byBounds = one->windowPicture(WindowRect{0, 0, 50, 50}, 41, false);
    ASSERT_TRUE(byBounds);
    EXPECT_EQ(byBounds->pixels, one->windowPicture(std::nullopt, 41, false)->pixels);
    const auto m = dropShadowMargins(2.0);
    auto framed = one->windowPicture(std::nullopt, 41, true);
    EXPECT_EQ(std::tie(framed->width, framed->height), std::make_tuple(800 + m.left + m.right, 600 + m.top + m.bottom));
    EXPECT_FALSE(FixtureDesktop::load(fixture("busy-desktop.json"))->windowPicture(std::nullopt, 109, true));

    // Off every screen: the largest scale; sizes are rounded.
    pvtest::ScratchDir dir;
    pvtest::writeText(dir.path / "desk.json", R"({
      "hostName": "h",
      "screens": [ { "displayId": 4, "frame": [0, 0, 100, 100], "backingScaleFactor": 1.0 },
                   { "displayId": 5, "frame": [100, 0, 100, 100], "backingScaleFactor": 3.0 } ],
      "windows": [ { "number": 1, "ownerPID": 2, "bounds": [500, 500, 10, 20], "picture": { "fill": [0, 0, 0, 255] } },
                   { "number": 2, "ownerPID": 2, "bounds": [10, 10, 10.4, 20.2], "picture": { "fill": [0, 0, 0, 255] } } ]
    })");
    desktop = FixtureDesktop::load(dir / "desk.json");
    auto away = desktop->windowPicture(std::nullopt, 1, false);
    auto small = desktop->windowPicture(std::nullopt, 2, false);
    ASSERT_TRUE(away && small);
    EXPECT_EQ(std::tie(away->width, away->height, small->width, small->height), std::make_tuple(30, 60, 10, 20));
}

TEST(FixtureDesktop, ComposedDesktopShowsWindowsFrontOverBackBlendedOnBlack) {
    auto desktop = FixtureDesktop::load(fixture("busy-desktop.json"));
    auto picture = desktop->desktopPicture();
    ASSERT_TRUE(picture);
    // Union of 1280x800 and 1600x1000 (top at -200) at scale 2.
    EXPECT_EQ(picture->width, 5760);
    EXPECT_EQ(picture->height, 2000);
    const int top = 200 * 2;  // main screen's top edge
    // "Café" (red) is in front of the Finder's desktop window (its own fill).
    EXPECT_EQ(rgba(*picture, 2 * 150, top + 2 * 100), (std::vector<int>{255, 0, 0, 255}));
    // The forbidden window (yellow, 200..500 x 200..400) is not drawn: the
    // Finder's background window shows through where nothing else stands.
    EXPECT_EQ(rgba(*picture, 2 * 490, top + 2 * 390), (std::vector<int>{60, 90, 130, 255}));
    // Above the main screen, beside the taller second one: uncovered black.
    EXPECT_EQ(rgba(*picture, 10, 10), (std::vector<int>{0, 0, 0, 255}));

    picture = FixtureDesktop::load(fixture("one-screen.json"))->desktopPicture();
    ASSERT_TRUE(picture);
    // Translucent windows are blended: the Terminal (20, 20, 20 at alpha 230) over black, clear of the editor.
    EXPECT_EQ(rgba(*picture, 2 * 600, 2 * 400), (std::vector<int>{18, 18, 18, 255}));
    // Where the editor overlaps it, the editor is in front.
    EXPECT_EQ(rgba(*picture, 2 * 450, 2 * 300), (std::vector<int>{255, 0, 0, 255}));
}

// The first ask hands a picture over; later asks, on any thread, make it again
// from the file.
TEST(FixtureDesktop, PicturesAskedAgainAreTheSame) {
    for (const char* name : {"one-screen.json", "two-screens.json", "busy-desktop.json"}) {
        SCOPED_TRACE(name);
        auto desktop = FixtureDesktop::load(fixture(name));
        const auto first = desktop->desktopPicture();
        ASSERT_TRUE(first);
        EXPECT_EQ(desktop->desktopPicture()->pixels, first->pixels);
        for (const auto& w : desktop->windowList()) {
            const auto picture = desktop->windowPicture(std::nullopt, w.number, false);
            const auto again = desktop->windowPicture(std::nullopt, w.number, false);
            ASSERT_EQ(picture.has_value(), again.has_value());
            if (picture) {
                EXPECT_EQ(again->pixels, picture->pixels);
            }
        }
    }
    auto desktop = FixtureDesktop::load(fixture("busy-desktop.json"));
    const auto reference = desktop->windowPicture(std::nullopt, 108, true);
    ASSERT_TRUE(reference);
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 3; ++i)
                mismatches += desktop->windowPicture(std::nullopt, 108, true)->pixels != reference->pixels;
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(mismatches.load(), 0);
}

// A one-screen, one-window fixture with the given screen frame and scale,
// window bounds, owner pid and picture.
std::string oneWindow(const std::string& frame, const std::string& scale, const std::string& bounds,
                      const std::string& picture = R"({"fill": [1, 2, 3, 255]})", const std::string& pid = "5") {
    return R"({"hostName": "h", "screens": [{"displayId": 1, "frame": )" + frame + R"(, "backingScaleFactor": )" +
           scale + R"(}], "windows": [{"number": 1, "ownerPID": )" + pid + R"(, "bounds": )" + bounds +
           R"(, "picture": )" + picture + "}]}";
}

TEST(FixtureDesktop, BadFilesNameTheFileAndTheKey) {
    const std::string bad = std::string(PV_SOURCE_DIR) + "/tests/fixtures/bad/";
    pvtest::ScratchDir dir;
    const std::string screen = "[0, 0, 400, 300]", window = "[10, 10, 100, 80]";
    const std::map<std::string, std::string> written{
        {"overflow.json", oneWindow(screen, "1", "[10, 10, 1e400, 80]")},
        {"far.json", oneWindow(screen, "1", "[10, 10, 3e9, 80]")},
        {"huge-fill.json", oneWindow(screen, "2", "[0, 0, 20000, 80]")},
        {"huge-scale.json", oneWindow(screen, "100", window)},
        {"huge-screens.json", oneWindow("[0, 0, 16000, 300]", "2", window)},
        {"wrapping-pid.json", oneWindow(screen, "1", window, R"({"fill": [1, 2, 3, 255]})", "18446744073709551615")},
        {"png-folder.json", oneWindow(screen, "1", window, R"({"png": "."})")},
    };
    for (const auto& [name, text] : written) pvtest::writeText(dir.path / name, text);
    const std::vector<std::pair<std::string, std::string>> cases{
        {bad + "malformed.json", "(file): malformed JSON"},
        {bad + "missing-bounds.json", "windows[0].bounds: missing"},
        {bad + "mistyped-scale.json", "screens[0].backingScaleFactor: must be a number"},
        {bad + "zero-display.json", "screens[1].displayId: must not be 0"},
        {bad + "missing-png.json", "windows[0].picture.png: cannot read"},
        {bad + "bad-fill.json", "windows[0].picture.fill[2]: is out of range"},
        {bad + "no-screens.json", "screens: must hold at least the main screen"},
        {bad + "main-off-origin.json", "screens[0].frame: the main screen must be at (0, 0)"},
        {bad + "duplicate-display.json", "screens[1].displayId: is used by an earlier screen"},
        {bad + "no-such-file.json", "(file): cannot be read"},
        {dir.path.string(), "(file): cannot be read: is a folder"},
        {dir / "overflow.json", "(file): a number is out of range: number overflow parsing '1e400'"},
        {dir / "far.json", "windows[0].bounds[2]: is out of range"},
        {dir / "huge-fill.json", "windows[0].bounds: would be 40000 pixels at scale 2"},
        {dir / "huge-scale.json", "screens[0].backingScaleFactor: is out of range"},
        {dir / "huge-screens.json", "screens: would be 32000 pixels"},
        {dir / "wrapping-pid.json", "windows[0].ownerPID: is out of range"},
        {dir / "png-folder.json", "windows[0].picture.png: cannot read"},
    };
    const auto refusal = [](const std::string& file, uint64_t maxPixels) -> std::string {
        try {
            FixtureDesktop::load(file, maxPixels);
        } catch (const FixtureError& e) {
            return e.what();
        }
        return file + " was accepted";
    };
    for (const auto& [file, expected] : cases) {
        const std::string message = refusal(file, kMaxFixturePicturePixels);
        EXPECT_EQ(message.rfind(file + ": ", 0), 0u) << message;
        EXPECT_NE(message.find(expected), std::string::npos) << message;
    }
    // Pictures beyond the given pixel count are refused before they are made.
    pvtest::writeText(dir.path / "f.json", oneWindow("[0, 0, 40, 30]", "1", "[0, 0, 20, 20]"));
    EXPECT_NO_THROW(FixtureDesktop::load(dir / "f.json", 1200));
    EXPECT_NE(refusal(dir / "f.json", 399).find("windows[0].bounds: a picture of 20x20 pixels is more than the 399"),
              std::string::npos);
}

}  // namespace
}  // namespace pv
