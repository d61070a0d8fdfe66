// The two system-wide hot keys on a real X server, pressed with xdotool as a
// person would, with NumLock on, and when another program holds one of them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include <xcb/xcb_keysyms.h>

#include "platform/x11/hot_keys.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

using x11::HotKey;
using x11::HotKeys;

// Waits for the next key press our connection receives and says which hot key it is.
HotKey nextHotKey(xcb_connection_t* c, const HotKeys& keys,
                  std::chrono::milliseconds limit = std::chrono::seconds(5)) {
    HotKey found = HotKey::None;
    XvfbSession::waitFor([&] {
        while (xcb_generic_event_t* e = xcb_poll_for_event(c)) {
            const HotKey k = keys.match(e);
            std::free(e);
            if (k != HotKey::None) found = k;
        }
        return found != HotKey::None;
    }, limit);
    return found;
}

TEST(HotKeys, BothCombinationsArriveWithAndWithoutNumLock) {
    XvfbSession session;
    HotKeys keys(session.connection(), session.root());
    EXPECT_TRUE(keys.grab().empty());

    session.run({"xdotool", "key", "shift+super+5"});
    EXPECT_EQ(nextHotKey(session.connection(), keys), HotKey::CaptureAll);
    session.run({"xdotool", "key", "shift+super+6"});
    EXPECT_EQ(nextHotKey(session.connection(), keys), HotKey::CaptureSelected);

    session.run({"xdotool", "key", "Num_Lock"});
    session.run({"xdotool", "key", "shift+super+5"});
    EXPECT_EQ(nextHotKey(session.connection(), keys), HotKey::CaptureAll);
    session.run({"xdotool", "key", "Num_Lock"});

    // Other combinations of the same keys are not ours.
    session.run({"xdotool", "key", "super+5"});
    session.run({"xdotool", "key", "ctrl+shift+super+6"});
    EXPECT_EQ(nextHotKey(session.connection(), keys, std::chrono::seconds(1)), HotKey::None);
}

TEST(HotKeys, ACombinationHeldElsewhereIsReportedAndTheOtherStillWorks) {
    XvfbSession session;
    // Another program holds Shift+Super+5 (without lock variants) before we start.
    std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> other(
        xcb_connect(session.display().c_str(), nullptr), &xcb_disconnect);
    xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(other.get());
    xcb_keycode_t* five = xcb_key_symbols_get_keycode(symbols, 0x0035);
    ASSERT_NE(five, nullptr);
    auto cookie = xcb_grab_key_checked(other.get(), 1, session.root(), XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_4, five[0],
                                       XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    ASSERT_EQ(xcb_request_check(other.get(), cookie), nullptr);
    std::free(five);
    xcb_key_symbols_free(symbols);

    HotKeys keys(session.connection(), session.root());
    EXPECT_EQ(keys.grab(), (std::vector<std::string>{"Shift+Super+5"}));
    session.run({"xdotool", "key", "shift+super+6"});
    EXPECT_EQ(nextHotKey(session.connection(), keys), HotKey::CaptureSelected);
    session.run({"xdotool", "key", "shift+super+5"});  // goes to the other program
    EXPECT_EQ(nextHotKey(session.connection(), keys, std::chrono::seconds(1)), HotKey::None);
}

}  // namespace
}  // namespace pv::test
