#pragma once
// One xcb connection to an X display, with the atoms the window server reads
// and small helpers that turn replies into owned objects. Every reply helper
// checks the connection: when the display has gone away it throws
// PlatformError("X display connection lost"); an ordinary X error (a window
// that no longer exists) yields an empty result instead.

#include <xcb/xcb.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace pv::x11 {

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
template <class T>
using Reply = std::unique_ptr<T, FreeDeleter>;

class X11Connection {
public:
    // Connects to displayName (empty: $DISPLAY); nullptr with *error set on failure.
    static std::unique_ptr<X11Connection> open(const std::string& displayName, std::string* error);
    ~X11Connection();
    X11Connection(const X11Connection&) = delete;
    X11Connection& operator=(const X11Connection&) = delete;

    xcb_connection_t* raw() const { return c_; }
    xcb_screen_t* screen() const { return screen_; }
    xcb_window_t root() const { return screen_->root; }

    // Throws PlatformError when the display is gone.
    void ensureAlive() const;
    // Waits for the server to handle everything sent so far.
    void sync();
    // Frees X errors and events that pile up on the connection.
    void drainEvents();
    // Waits up to limit for an event that accept takes; the others are freed on
    // the way. False when none came in time.
    bool waitForEvent(const std::function<bool(const xcb_generic_event_t&)>& accept, std::chrono::milliseconds limit);

    // The reply of one request, or nullptr after an X error.
    template <class R, class Cookie>
    Reply<R> get(R* (*replyFn)(xcb_connection_t*, Cookie, xcb_generic_error_t**), Cookie cookie) {
        xcb_generic_error_t* error = nullptr;
        R* r = replyFn(c_, cookie, &error);
        std::free(error);
        if (!r) ensureAlive();
        return Reply<R>(r);
    }
    // True when a checked request succeeded.
    bool check(xcb_void_cookie_t cookie);

    xcb_atom_t atom(const std::string& name);
    // The name of an atom this connection interned; empty for others.
    std::string knownAtomName(xcb_atom_t atom) const;

    // Property readers; nullopt when the property is absent or of another format.
    std::optional<std::vector<uint32_t>> readCardinals(xcb_window_t w, xcb_atom_t property, xcb_atom_t type);
    // type may be XCB_ATOM_ANY; a property of another type counts as absent.
    // actualType, when given, receives the type found.
    std::optional<std::string> readBytes(xcb_window_t w, xcb_atom_t property, xcb_atom_t type,
                                         xcb_atom_t* actualType = nullptr);
    // True when the window has the property, of any type.
    bool hasProperty(xcb_window_t w, xcb_atom_t property);

    // Asks for every property of every window in one go; the readers above
    // then answer those from the replies instead of a round trip each. Each
    // reply answers one read; forgetPrefetched (or the next prefetch) drops
    // those not read.
    void prefetchProperties(const std::vector<xcb_window_t>& windows, const std::vector<xcb_atom_t>& properties);
    void forgetPrefetched();

private:
    X11Connection(xcb_connection_t* c, int screenNumber);
    void internKnownAtoms();
    // The property's reply, prefetched or asked for now; values of another
    // type than `type` (unless XCB_ATOM_ANY) must be ignored by the caller.
    Reply<xcb_get_property_reply_t> property(xcb_window_t w, xcb_atom_t property, xcb_atom_t type, uint32_t longLength);

    xcb_connection_t* c_ = nullptr;
    xcb_screen_t* screen_ = nullptr;
    std::unordered_map<std::string, xcb_atom_t> atoms_;
    std::unordered_map<uint64_t, xcb_get_property_cookie_t> prefetched_;  // by window << 32 | property
};

}  // namespace pv::x11
