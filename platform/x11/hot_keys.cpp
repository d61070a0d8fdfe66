#include "platform/x11/hot_keys.h"

#include <xcb/xcb_keysyms.h>

#include <cstdlib>
#include <memory>

namespace pv::x11 {

namespace {

constexpr xcb_keysym_t kKeysym5 = 0x0035;                             // XK_5
constexpr xcb_keysym_t kKeysym6 = 0x0036;                             // XK_6
constexpr xcb_keysym_t kKeysymNumLock = 0xff7f;                       // XK_Num_Lock
constexpr uint16_t kModifiers = XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_4;  // Shift+Super
// Modifiers that decide a combination; NumLock, CapsLock and the rest do not.
constexpr uint16_t kRelevant = XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;

struct SymbolsFree {
    void operator()(xcb_key_symbols_t* s) const { xcb_key_symbols_free(s); }
};

xcb_keycode_t firstKeycode(xcb_key_symbols_t* symbols, xcb_keysym_t sym) {
    std::unique_ptr<xcb_keycode_t, decltype(&std::free)> codes(xcb_key_symbols_get_keycode(symbols, sym), &std::free);
    return codes && codes.get()[0] != XCB_NO_SYMBOL ? codes.get()[0] : 0;
}

// The modifier bit that NumLock sets on this server (usually Mod2).
uint16_t findNumLockMask(xcb_connection_t* c, xcb_keycode_t numLock) {
    if (numLock == 0) return 0;
    std::unique_ptr<xcb_get_modifier_mapping_reply_t, decltype(&std::free)> reply(
        xcb_get_modifier_mapping_reply(c, xcb_get_modifier_mapping(c), nullptr), &std::free);
    if (!reply) return 0;
    const xcb_keycode_t* codes = xcb_get_modifier_mapping_keycodes(reply.get());
    const int perModifier = reply->keycodes_per_modifier;
    for (int mod = 0; mod < 8; ++mod) {
        for (int k = 0; k < perModifier; ++k) {
            if (codes[mod * perModifier + k] == numLock) return static_cast<uint16_t>(1u << mod);
        }
    }
    return 0;
}

}  // namespace

HotKeys::HotKeys(xcb_connection_t* connection, xcb_window_t root) : conn_(connection), root_(root) {
    std::unique_ptr<xcb_key_symbols_t, SymbolsFree> symbols(xcb_key_symbols_alloc(conn_));
    bindings_ = {{HotKey::CaptureAll, "Shift+Super+5"}, {HotKey::CaptureSelected, "Shift+Super+6"}};
    if (!symbols) return;
    bindings_[0].code = firstKeycode(symbols.get(), kKeysym5);
    bindings_[1].code = firstKeycode(symbols.get(), kKeysym6);
    numLockMask_ = findNumLockMask(conn_, firstKeycode(symbols.get(), kKeysymNumLock));
}

HotKeys::~HotKeys() {
    for (const auto& b : bindings_) {
        if (b.grabbed) xcb_ungrab_key(conn_, b.code, root_, XCB_MOD_MASK_ANY);
    }
    xcb_flush(conn_);
}

std::vector<std::string> HotKeys::grab() {
    const uint16_t locks[] = {0, numLockMask_, XCB_MOD_MASK_LOCK,
                              static_cast<uint16_t>(numLockMask_ | XCB_MOD_MASK_LOCK)};
    std::vector<std::string> held;
    for (auto& b : bindings_) {
        if (b.code == 0) {
            held.push_back(std::string(b.name) + " (no such key on this keyboard)");
            continue;
        }
        std::vector<xcb_void_cookie_t> cookies;
        for (uint16_t lock : locks) {
            cookies.push_back(xcb_grab_key_checked(conn_, 1, root_, static_cast<uint16_t>(kModifiers | lock), b.code,
                                                   XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        }
        bool refused = false;
        for (auto cookie : cookies) {
            if (xcb_generic_error_t* error = xcb_request_check(conn_, cookie)) {
                refused = true;  // BadAccess: another client holds this combination
                std::free(error);
            }
        }
        if (refused) {
            // Drop the combinations we did get: half a hot key would confuse.
            for (uint16_t lock : locks) xcb_ungrab_key(conn_, b.code, root_, static_cast<uint16_t>(kModifiers | lock));
            held.emplace_back(b.name);
        } else {
            b.grabbed = true;
        }
    }
    xcb_flush(conn_);
    return held;
}

HotKey HotKeys::match(const xcb_generic_event_t* event) const {
    if ((event->response_type & 0x7f) != XCB_KEY_PRESS) return HotKey::None;
    const auto* press = reinterpret_cast<const xcb_key_press_event_t*>(event);
    if ((press->state & kRelevant) != kModifiers) return HotKey::None;
    for (const auto& b : bindings_) {
        if (b.grabbed && b.code == press->detail) return b.key;
    }
    return HotKey::None;
}

}  // namespace pv::x11
