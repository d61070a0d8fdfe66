// The two system-wide hot keys on a real X server, pressed with xdotool as a
// person would: while another program holds one of them, then with NumLock
// on and off.
#include <gtest/gtest.h>
#include <xcb/xcb_keysyms.h>

#include <cstdlib>
#include <memory>

#include "platform/x11/hot_keys.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

using x11::HotKey;
using x11::HotKeys;

TEST(HotKeys, BothCombinationsArriveWithAndWithoutNumLockUnlessAnotherProgramHoldsOne) {
    XvfbSession session;
    // Presses the keys and says which hot key the next press our connection receives is.
    const auto press = [&](const HotKeys& keys, const std::string& combination,
                           std::chrono::milliseconds limit = std::chrono::seconds(5)) {
        session.run({"xdotool", "key", combination});
        HotKey found = HotKey::None;
        XvfbSession::waitFor(
            [&] {
                while (xcb_generic_event_t* e = xcb_poll_for_event(session.connection())) {
                    if (const HotKey k = keys.match(e); k != HotKey::None) found = k;
                    std::free(e);
                }
                return found != HotKey::None;
            },
            limit);
        return found;
    };
    {
        // Another program holds Shift+Super+5 (without lock variants) before we start.
        std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> other(
            xcb_connect(session.display().c_str(), nullptr), &xcb_disconnect);
        xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(other.get());
        xcb_keycode_t* five = xcb_key_symbols_get_keycode(symbols, '5');
        ASSERT_NE(five, nullptr);
        ASSERT_EQ(xcb_request_check(other.get(), xcb_grab_key_checked(other.get(), 1, session.root(),
                                                                      XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_4, five[0],
                                                                      XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)),
                  nullptr);
        std::free(five);
        xcb_key_symbols_free(symbols);

        HotKeys keys(session.connection(), session.root());
        EXPECT_EQ(keys.grab(), (std::vector<std::string>{"Shift+Super+5"}));
        EXPECT_EQ(press(keys, "shift+super+6"), HotKey::CaptureSelected);
        EXPECT_EQ(press(keys, "shift+super+5", std::chrono::seconds(1)), HotKey::None);  // the other program's
    }

    HotKeys keys(session.connection(), session.root());
    EXPECT_TRUE(keys.grab().empty());
    EXPECT_EQ(press(keys, "shift+super+5"), HotKey::CaptureAll);
    EXPECT_EQ(press(keys, "shift+super+6"), HotKey::CaptureSelected);
    session.run({"xdotool", "key", "Num_Lock"});
    EXPECT_EQ(press(keys, "shift+super+5"), HotKey::CaptureAll);
    session.run({"xdotool", "key", "Num_Lock"});
    // Other combinations of the same keys are not ours.
    session.run({"xdotool", "key", "super+5"});
    EXPECT_EQ(press(keys, "ctrl+shift+super+6", std::chrono::seconds(1)), HotKey::None);
}

}  // namespace
}  // namespace pv::test
