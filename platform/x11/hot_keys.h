#pragma once
// System-wide hot keys on X11: key grabs on the root window for
// Shift+Super+5 (capture all) and Shift+Super+6 (capture selected), in every
// combination of NumLock and CapsLock, so that they work whichever is on.

#include <xcb/xcb.h>

#include <string>
#include <vector>

namespace pv::x11 {

enum class HotKey { None = 0, CaptureAll = 1, CaptureSelected = 2 };

class HotKeys {
public:
    HotKeys(xcb_connection_t* connection, xcb_window_t root);
    ~HotKeys();  // releases the grabs
    HotKeys(const HotKeys&) = delete;
    HotKeys& operator=(const HotKeys&) = delete;

    // Grabs both combinations. Returns the names ("Shift+Super+5") of those
    // that another program holds already; the others work.
    std::vector<std::string> grab();

    // Which of our hot keys a key press event is, if any.
    HotKey match(const xcb_generic_event_t* event) const;

private:
    struct Binding {
        HotKey key;
        const char* name;
        xcb_keycode_t code = 0;
        bool grabbed = false;
    };

    xcb_connection_t* conn_;
    xcb_window_t root_;
    uint16_t numLockMask_ = 0;
    std::vector<Binding> bindings_;
};

}  // namespace pv::x11
