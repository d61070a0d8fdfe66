#include "platform/x11/x11_connection.h"

#include <poll.h>

#include <cstring>

#include "platform/window_server.h"

namespace pv::x11 {
namespace {

// Interned together at connect time, so that listing windows costs no extra
// round trips.
const char* const kKnownAtoms[] = {
    "UTF8_STRING",
    "_NET_WM_NAME",
    "_NET_WM_PID",
    "_NET_CLIENT_LIST_STACKING",
    "_NET_SUPPORTING_WM_CHECK",
    "_NET_WM_WINDOW_TYPE",
    "_NET_WM_STATE",
    "_NET_WM_WINDOW_TYPE_DESKTOP",
    "_NET_WM_WINDOW_TYPE_DOCK",
    "_NET_WM_WINDOW_TYPE_TOOLBAR",
    "_NET_WM_WINDOW_TYPE_MENU",
    "_NET_WM_WINDOW_TYPE_UTILITY",
    "_NET_WM_WINDOW_TYPE_SPLASH",
    "_NET_WM_WINDOW_TYPE_DIALOG",
    "_NET_WM_WINDOW_TYPE_DROPDOWN_MENU",
    "_NET_WM_WINDOW_TYPE_POPUP_MENU",
    "_NET_WM_WINDOW_TYPE_TOOLTIP",
    "_NET_WM_WINDOW_TYPE_NOTIFICATION",
    "_NET_WM_WINDOW_TYPE_COMBO",
    "_NET_WM_WINDOW_TYPE_DND",
    "_NET_WM_WINDOW_TYPE_NORMAL",
    "_NET_WM_STATE_ABOVE",
    "_NET_WM_STATE_BELOW",
    "_NET_WM_STATE_MODAL",
    "_NET_WM_STATE_HIDDEN",
    "_NET_WM_STATE_FULLSCREEN",
    "_NET_WM_CM_S0",
    "RESOURCE_MANAGER",
    "EDID",
    "WM_STATE",
    "_PLENAVUE_NO_CAPTURE",
    "COMPOUND_TEXT",
    "_GTK_APPLICATION_ID",
};

// "NAME: REASON" for a connection that failed with code.
std::string describeFailure(const char* name, int code) {
    const char* shown = name ? name : std::getenv("DISPLAY");
    if (!shown || !*shown) return "(none): DISPLAY is not set";
    const char* reason = code == XCB_CONN_CLOSED_PARSE_ERR        ? "not a display name"
                         : code == XCB_CONN_CLOSED_INVALID_SCREEN ? "no such screen"
                                                                  : "no X server answers there, or it refused us";
    return std::string(shown) + ": " + reason;
}

}  // namespace

std::unique_ptr<X11Connection> X11Connection::open(const std::string& displayName, std::string* error) {
    const char* name = displayName.empty() ? nullptr : displayName.c_str();
    int screenNumber = 0;
    xcb_connection_t* c = xcb_connect(name, &screenNumber);
    if (int code = xcb_connection_has_error(c); code != 0) {
        xcb_disconnect(c);
        if (error) *error = "cannot open X display " + describeFailure(name, code);
        return nullptr;
    }
    return std::unique_ptr<X11Connection>(new X11Connection(c, screenNumber));
}

X11Connection::X11Connection(xcb_connection_t* c, int screenNumber) : c_(c) {
    auto it = xcb_setup_roots_iterator(xcb_get_setup(c_));
    for (int i = 0; i < screenNumber && it.rem > 1; ++i) xcb_screen_next(&it);
    screen_ = it.data;
    internKnownAtoms();
}

void X11Connection::ensureAlive() const {
    if (xcb_connection_has_error(c_) != 0) throw PlatformError("X display connection lost");
}

void X11Connection::sync() {
    get(xcb_get_input_focus_reply, xcb_get_input_focus(c_));
    ensureAlive();
}

void X11Connection::drainEvents() {
    while (xcb_generic_event_t* e = xcb_poll_for_event(c_)) std::free(e);
    ensureAlive();
}

bool X11Connection::waitForEvent(const std::function<bool(const xcb_generic_event_t&)>& accept,
                                 std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        while (xcb_generic_event_t* e = xcb_poll_for_event(c_)) {
            const bool taken = accept(*e);
            std::free(e);
            if (taken) return true;
        }
        ensureAlive();
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        pollfd p{xcb_get_file_descriptor(c_), POLLIN, 0};
        poll(&p, 1, static_cast<int>(left.count()) + 1);
    }
}

bool X11Connection::check(xcb_void_cookie_t cookie) {
    xcb_generic_error_t* error = xcb_request_check(c_, cookie);
    const bool ok = error == nullptr;
    std::free(error);
    ensureAlive();
    return ok;
}

void X11Connection::internKnownAtoms() {
    std::vector<xcb_intern_atom_cookie_t> cookies;
    for (const char* name : kKnownAtoms)
        cookies.push_back(xcb_intern_atom(c_, 0, static_cast<uint16_t>(std::strlen(name)), name));
    for (size_t i = 0; i < cookies.size(); ++i) {
        xcb_intern_atom_reply_t* r = xcb_intern_atom_reply(c_, cookies[i], nullptr);
        if (r) atoms_[kKnownAtoms[i]] = r->atom;
        std::free(r);
    }
}

xcb_atom_t X11Connection::atom(const std::string& name) {
    if (auto it = atoms_.find(name); it != atoms_.end()) return it->second;
    auto r = get(xcb_intern_atom_reply, xcb_intern_atom(c_, 0, static_cast<uint16_t>(name.size()), name.c_str()));
    if (!r) return XCB_ATOM_NONE;
    atoms_[name] = r->atom;
    return r->atom;
}

std::string X11Connection::knownAtomName(xcb_atom_t a) const {
    for (const auto& [name, value] : atoms_)
        if (value == a) return name;
    return {};
}

namespace {

// Long enough for any property we read (in 32-bit units): 4 MiB.
constexpr uint32_t kPropertyLength = 1u << 20;

uint64_t propertyKey(xcb_window_t w, xcb_atom_t property) { return uint64_t{w} << 32 | property; }

// A property of another type than asked for comes back with its type and no value.
int valueLength(const xcb_get_property_reply_t& r, xcb_atom_t type) {
    if (type != XCB_ATOM_ANY && r.type != type) return 0;
    return xcb_get_property_value_length(&r);
}

}  // namespace

X11Connection::~X11Connection() {
    forgetPrefetched();
    xcb_disconnect(c_);
}

void X11Connection::prefetchProperties(const std::vector<xcb_window_t>& windows,
                                       const std::vector<xcb_atom_t>& properties) {
    forgetPrefetched();
    for (xcb_window_t w : windows)
        for (xcb_atom_t p : properties)
            if (!prefetched_.count(propertyKey(w, p)))
                prefetched_[propertyKey(w, p)] = xcb_get_property(c_, 0, w, p, XCB_ATOM_ANY, 0, kPropertyLength);
}

void X11Connection::forgetPrefetched() {
    for (const auto& [key, cookie] : prefetched_) xcb_discard_reply(c_, cookie.sequence);
    prefetched_.clear();
}

Reply<xcb_get_property_reply_t> X11Connection::property(xcb_window_t w, xcb_atom_t property, xcb_atom_t type,
                                                        uint32_t longLength) {
    if (auto it = prefetched_.find(propertyKey(w, property)); it != prefetched_.end()) {
        const xcb_get_property_cookie_t cookie = it->second;
        prefetched_.erase(it);
        return get(xcb_get_property_reply, cookie);
    }
    return get(xcb_get_property_reply, xcb_get_property(c_, 0, w, property, type, 0, longLength));
}

std::optional<std::vector<uint32_t>> X11Connection::readCardinals(xcb_window_t w, xcb_atom_t property,
                                                                  xcb_atom_t type) {
    auto r = this->property(w, property, type, kPropertyLength);
    if (!r || r->type == XCB_ATOM_NONE || r->format != 32) return std::nullopt;
    const auto* values = static_cast<const uint32_t*>(xcb_get_property_value(r.get()));
    const int count = valueLength(*r, type) / 4;
    return std::vector<uint32_t>(values, values + count);
}

std::optional<std::string> X11Connection::readBytes(xcb_window_t w, xcb_atom_t property, xcb_atom_t type,
                                                    xcb_atom_t* actualType) {
    auto r = this->property(w, property, type, kPropertyLength);
    if (!r || r->type == XCB_ATOM_NONE || r->format != 8) return std::nullopt;
    // A property of another type: absent for this reader.
    if (type != XCB_ATOM_ANY && r->type != type) return std::nullopt;
    if (actualType) *actualType = r->type;
    const auto* bytes = static_cast<const char*>(xcb_get_property_value(r.get()));
    return std::string(bytes, static_cast<size_t>(valueLength(*r, type)));
}

bool X11Connection::hasProperty(xcb_window_t w, xcb_atom_t property) {
    auto r = this->property(w, property, XCB_ATOM_ANY, 0);
    return r && r->type != XCB_ATOM_NONE;
}

}  // namespace pv::x11
