// The KDE Plasma backend's rules without a session: KWin's report made into
// window list entries, the frame found inside KWin's pictures, and the keys
// Shift and a digit type in a keyboard layout.
#include <gtest/gtest.h>

#include <climits>

#include "platform/kwin/frame_in_picture.h"
#include "platform/kwin/keyboard_layouts.h"
#include "platform/kwin/kwin_windows.h"

using namespace pv;
using namespace pv::kwin;

namespace {

// KWin 5.27's report: a desktop window at the bottom, two applications, an X
// client without a pid, a panel, a minimised window, one on another desktop,
// our own window and a notification on top.
const char* kReport = R"({"api": 5,
  "screens": [{"name": "0", "geometry": [0, 0, 1280, 800], "scale": 1},
              {"name": "1", "geometry": [1280, 0, 1280, 800]}],
  "windows": [
    {"id": "{d}", "frame": [0, 0, 1280, 800], "buffer": [0, 0, 1280, 800], "caption": "Desktop — Plasma",
     "resourceClass": "plasmashell", "pid": 90, "desktop": true},
    {"id": "{a}", "frame": [100, 50, 300, 237], "buffer": [100, 87, 300, 200], "caption": "Letter",
     "resourceClass": "writer", "desktopFileName": "org.example.Writer", "pid": 200},
    {"id": "{x1}", "frame": [500, 60, 200, 187], "caption": "xlogo", "resourceClass": "xlogo", "pid": 0, "x11": true},
    {"id": "{x2}", "frame": [520, 70, 200, 187], "caption": "xeyes", "resourceClass": "xeyes", "pid": 0, "x11": true},
    {"id": "{b}", "frame": [1400, 100, 400, 300], "caption": "Notes", "resourceClass": "writer",
     "desktopFileName": "org.example.Writer", "pid": 200,
     "keepAbove": true},
    {"id": "{m}", "frame": [10, 10, 100, 100], "caption": "Minimised", "pid": 300, "minimized": true},
    {"id": "{o}", "frame": [10, 10, 100, 100], "caption": "Elsewhere", "pid": 301, "onCurrentDesktop": false},
    {"id": "{p}", "frame": [0, 0, 2560, 30], "caption": "Panel", "resourceClass": "plasmashell", "pid": 90,
     "dock": true},
    {"id": "{us}", "frame": [600, 400, 300, 200], "caption": "Plenavue", "resourceClass": "plenavue", "pid": 4242},
    {"id": "{n}", "frame": [900, 40, 350, 90], "caption": "Mail", "resourceClass": "plasmashell", "pid": 90,
     "notification": true}
  ]})";

EntryRules rules() {
    EntryRules r;
    r.mainScreen = {0, 0, 1280, 800};
    r.ownPid = 4242;
    r.numberOf = [](const std::string& id) { return static_cast<uint32_t>(std::hash<std::string>{}(id)&0xffff); };
    r.applicationName = [](const KWinWindow& w) { return w.desktopFileName.empty() ? w.resourceClass : "Writer"; };
    return r;
}

}  // namespace

TEST(KWinListing, ShownWindowsFrontmostFirstWithTheOwnersTheInventoryKnows) {
    const auto listing = parseListing(kReport);
    EXPECT_EQ(listing.api, 5);
    ASSERT_EQ(listing.screens.size(), 2u);
    EXPECT_EQ(listing.screens[1].scale, 1.0);  // 5.27 does not say; 1

    const auto listed = listedWindows(listing, rules());
    struct Expect {
        const char* id;
        const char* owner;
        const char* title;
    };
    // Minimised and other-desktop windows are not on screen.
    const Expect expected[] = {{"{n}", "SystemUIServer", "Mail"}, {"{us}", "plenavue", "Plenavue"},
                               {"{p}", "Dock", "Panel"},          {"{b}", "Writer", "Notes"},
                               {"{x2}", "xeyes", "xeyes"},        {"{x1}", "xlogo", "xlogo"},
                               {"{a}", "Writer", "Letter"},       {"{d}", "Window Server", "Desktop"}};
    ASSERT_EQ(listed.size(), std::size(expected));
    for (size_t i = 0; i < listed.size(); ++i) {
        SCOPED_TRACE(expected[i].id);
        EXPECT_EQ(listed[i].entry.handle.key, expected[i].id);
        EXPECT_EQ(listed[i].entry.number, rules().numberOf(expected[i].id));
        EXPECT_EQ(listed[i].entry.ownerName, expected[i].owner);
        EXPECT_EQ(listed[i].entry.title, expected[i].title);
        // Our own window only is not to be captured.
        EXPECT_EQ(listed[i].entry.sharingState, std::string(expected[i].id) == "{us}" ? 0 : 1);
        // Layers fall strictly along the stacking, whatever the kinds.
        if (i > 0) {
            EXPECT_LT(listed[i].entry.layer, listed[i - 1].entry.layer);
        }
    }
    EXPECT_EQ(listed[0].entry.layer, 25);  // the notification keeps its kind's layer
    EXPECT_EQ(listed.back().entry.layer, INT32_MIN + 20);

    // Bounds are the frame; a window on the second screen lies right of the first.
    EXPECT_EQ(listed[3].entry.bounds, (WindowRect{1400, 100, 400, 300}));
    // X clients without a pid: one stand-in each, never a real pid, never shared.
    EXPECT_GE(listed[4].entry.ownerPID, 1 << 30);
    EXPECT_NE(listed[4].entry.ownerPID, listed[5].entry.ownerPID);
    EXPECT_EQ(listed[6].entry.ownerPID, 200);
}

TEST(KWinListing, BoundsAreRelativeToTheMainScreen) {
    auto r = rules();
    r.mainScreen = {1280, 0, 1280, 800};  // the main screen is the right one
    const auto listed = listedWindows(parseListing(kReport), r);
    const auto notes = std::find_if(listed.begin(), listed.end(), [](auto& l) { return l.entry.title == "Notes"; });
    ASSERT_NE(notes, listed.end());
    EXPECT_EQ(notes->entry.bounds, (WindowRect{120, 100, 400, 300}));
}

TEST(KWinListing, WhatIsNotAListingIsRefused) {
    for (const char* text : {"", "{", "[]", R"({"api": 5})", R"({"windows": 3})"}) {
        SCOPED_TRACE(text);
        EXPECT_THROW(parseListing(text), ListingError);
    }
    // Plasma 6's report parses the same; entries without an id are dropped.
    const auto six = parseListing(R"({"api": 6, "screens": [{"name": "DP-1", "geometry": [0, 0, 1920, 1080],
        "scale": 1.5}], "windows": [{"frame": [0, 0, 10, 10]}, {"id": "{a}", "frame": [0.5, 0, 10.25, 10]}]})");
    EXPECT_EQ(six.api, 6);
    EXPECT_EQ(six.screens[0].scale, 1.5);
    ASSERT_EQ(six.windows.size(), 1u);
    EXPECT_EQ(six.windows[0].frame.width, 10.25);
}

// ---- the frame inside KWin's pictures ----------------------------------------

namespace {

// A picture of w x h, transparent but for an opaque box (a decoration's shadow
// is translucent), with its top-left corner pixel left out as a rounded corner is.
Image pictureWithOpaqueBox(int w, int h, int x, int y, int bw, int bh) {
    Image p(w, h);
    for (int row = 0; row < h; ++row)
        for (int col = 0; col < w; ++col) {
            const bool box = col >= x && col < x + bw && row >= y && row < y + bh && !(col == x && row == y);
            p.row(row)[col * 4 + 3] = box ? 255 : 60;
        }
    return p;
}

}  // namespace

TEST(KWinFrame, FoundAsKWinGivesIt) {
    struct Case {
        const char* what;
        Image picture;
        double scale;
        Rect frame, buffer;
        std::optional<CanvasRect> expected;
    };
    const Case cases[] = {
        {"just the frame", Image(300, 237), 1, {10, 10, 300, 237}, {10, 47, 300, 200}, CanvasRect{0, 0, 300, 237}},
        {"client-side decorations: the buffer with its own shadow",
         Image(806, 491),
         1,
         {269, 186, 742, 427},
         {237, 154, 806, 491},
         CanvasRect{32, 32, 742, 427}},
        {"Breeze's shadow, not the same on every side",
         pictureWithOpaqueBox(430, 367, 65, 53, 300, 237),
         1,
         {10, 10, 300, 237},
         {10, 47, 300, 200},
         CanvasRect{65, 53, 300, 237}},
        {"the same at scale 2",
         pictureWithOpaqueBox(860, 734, 130, 106, 600, 474),
         2,
         {10, 10, 300, 237},
         {10, 47, 300, 200},
         CanvasRect{130, 106, 600, 474}},
        {"a frame that does not fit",
         pictureWithOpaqueBox(100, 100, 50, 50, 50, 50),
         1,
         {0, 0, 80, 80},
         {0, 0, 80, 80},
         std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(frameInPicture(c.picture, c.scale, c.frame, c.buffer), c.expected);
    }
}

TEST(KWinFrame, CutOutKeepsPixelsAndLeavesTheRestTransparent) {
    Image p = Image::filled(4, 3, 10, 20, 30, 255);
    p.row(1)[2 * 4] = 99;
    const Image inside = cutOut(p, {1, 1, 2, 2});
    ASSERT_EQ(inside.width, 2);
    EXPECT_EQ(inside.row(0)[4], 99);
    const Image reaching = cutOut(p, {3, 2, 3, 3});  // one pixel inside, the rest past the edges
    EXPECT_EQ(reaching.row(0)[3], 255);
    EXPECT_EQ(reaching.row(0)[4 + 3], 0);
    EXPECT_EQ(reaching.row(2)[3], 0);
}

// ---- keyboard layouts ----------------------------------------------------------

TEST(KWinKeys, LayoutsComeFromPlasmaSettingsThenTheEnvironment) {
    struct Case {
        const char* what;
        std::string kxkbrc;
        const char* xkbLayout;
        std::vector<KeyboardLayout> expected;
    };
    const Case cases[] = {
        {"nothing set", "", nullptr, {{"us", ""}}},
        {"Plasma's list",
         "[Layout]\nDisplayNames=,\nLayoutList=de,fr\nUse=true\nVariantList=nodeadkeys,\n",
         "gb",
         {{"de", "nodeadkeys"}, {"fr", ""}}},
        {"a list Plasma does not use", "[Layout]\nLayoutList=de\nUse=false\n", "gb", {{"gb", ""}}},
        {"another group's keys", "[Other]\nLayoutList=de\nUse=true\n[Layout]\nUse=true\n", nullptr, {{"us", ""}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const auto env = [&](const char* name) -> std::optional<std::string> {
            if (std::string(name) == "XKB_DEFAULT_LAYOUT" && c.xkbLayout) return c.xkbLayout;
            return std::nullopt;
        };
        EXPECT_EQ(keyboardLayouts(c.kxkbrc, env), c.expected);
    }
}

TEST(KWinKeys, ShiftAndADigitTypeTheLayoutsSymbol) {
    struct Case {
        KeyboardLayout layout;
        int digit;
        char32_t expected;
    };
    const Case cases[] = {{{"us", ""}, 5, U'%'}, {{"us", ""}, 6, U'^'}, {{"de", ""}, 5, U'%'},
                          {{"de", ""}, 6, U'&'}, {{"fr", ""}, 5, U'5'}, {{"gb", ""}, 3, U'£'}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.layout.layout + " " + std::to_string(c.digit));
        EXPECT_EQ(shiftedDigit(c.layout, c.digit), c.expected);
    }
    EXPECT_EQ(shiftedDigit({"no-such-layout", ""}, 5), std::nullopt);
}
