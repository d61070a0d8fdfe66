#include "platform/gnome/gnome_windows.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace pv::gnome {

namespace {

using nlohmann::json;

kwin::GlobalRect rectOf(const json& o, const char* key) {
    auto it = o.find(key);
    if (it == o.end() || !it->is_object()) return {};
    return {it->value("x", 0.0), it->value("y", 0.0), it->value("width", 0.0), it->value("height", 0.0)};
}

std::string text(const json& o, const char* key) {
    auto it = o.find(key);
    return it != o.end() && it->is_string() ? it->get<std::string>() : std::string();
}

bool flag(const json& o, const char* key) {
    auto it = o.find(key);
    return it != o.end() && it->is_boolean() && it->get<bool>();
}

// The shell's window type and stack layer as the roles the listing rules know.
void takeKind(kwin::KWinWindow& w, const std::string& type, const std::string& layer) {
    w.dock = type == "DOCK";
    w.desktop = type == "DESKTOP";
    w.notification = type == "NOTIFICATION";
    w.onScreenDisplay = type == "TOOLTIP";
    w.popup = type == "DROPDOWN_MENU" || type == "POPUP_MENU" || type == "COMBO" || type == "DND";
    w.keepAbove = layer == "TOP";
    w.keepBelow = layer == "BOTTOM";
}

std::string withoutSuffix(std::string id, const std::string& suffix) {
    if (id.size() > suffix.size() && id.compare(id.size() - suffix.size(), suffix.size(), suffix) == 0)
        id.resize(id.size() - suffix.size());
    return id;
}

}  // namespace

GnomeListing parseListing(const std::string& text_) {
    json doc;
    try {
        doc = json::parse(text_);
    } catch (const json::exception& e) {
        throw kwin::ListingError(std::string("GNOME Shell's window list is not JSON: ") + e.what());
    }
    if (!doc.is_object() || !doc.contains("windows") || !doc["windows"].is_array())
        throw kwin::ListingError("GNOME Shell's window list has no windows");
    GnomeListing out;
    out.listing.api = doc.value("api", 0);
    if (doc.contains("monitors") && doc["monitors"].is_array()) {
        for (const json& m : doc["monitors"]) {
            if (!m.is_object()) continue;
            kwin::KWinScreen screen{
                std::to_string(m.value("index", 0)),
                {m.value("x", 0.0), m.value("y", 0.0), m.value("width", 0.0), m.value("height", 0.0)},
                m.value("scale", 1.0)};
            if (screen.scale <= 0) screen.scale = 1.0;
            auto& screens = out.listing.screens;
            screens.insert(flag(m, "primary") ? screens.begin() : screens.end(), screen);
        }
    }
    // The extension lists frontmost first; the listing keeps the bottom first.
    const json& windows = doc["windows"];
    for (auto it = windows.rbegin(); it != windows.rend(); ++it) {
        const json& o = *it;
        if (!o.is_object() || !o.contains("id") || !o["id"].is_number_unsigned()) continue;
        kwin::KWinWindow w;
        w.id = std::to_string(o["id"].get<uint64_t>());
        w.frame = rectOf(o, "frame");
        w.buffer = rectOf(o, "buffer");
        w.caption = text(o, "title");
        w.resourceClass = text(o, "wmClass");
        w.resourceName = text(o, "wmClassInstance");
        w.desktopFileName = text(o, "sandboxedAppId");
        if (w.desktopFileName.empty()) w.desktopFileName = text(o, "gtkApplicationId");
        w.pid = o.contains("pid") && o["pid"].is_number_integer() ? o["pid"].get<int32_t>() : 0;
        w.x11 = text(o, "clientType") == "X11";
        takeKind(w, text(o, "windowType"), text(o, "layer"));
        w.minimized = flag(o, "minimized");
        w.hidden = flag(o, "hidden") || !flag(o, "hasPicture");
        w.onCurrentDesktop = flag(o, "onActiveWorkspace") || flag(o, "onAllWorkspaces");
        w.fullScreen = flag(o, "fullscreen");
        if (auto app = o.find("app"); app != o.end() && app->is_object()) {
            // Applications without a desktop entry get an invented id
            // ("window:N") and their class as the name: keep the class then.
            const std::string id = text(*app, "id");
            if (id.rfind("window:", 0) != 0) {
                out.applications[w.id] = {text(*app, "name"), text(*app, "icon")};
                if (w.desktopFileName.empty()) w.desktopFileName = withoutSuffix(id, ".desktop");
            }
        }
        out.listing.windows.push_back(std::move(w));
    }
    return out;
}

Failure extensionProblem(const ExtensionReport& r) {
    const std::string ext = "Plenavue's GNOME Shell extension (" + std::string(kExtensionUuid) + ")";
    const std::string relogin = "log out and back in";
    if (!r.shellPresent)
        return {FailureKind::CompositorLost, "GNOME Shell is not on the session bus: the compositor went away", ""};
    if (!r.serving) {
        if (!r.state)
            return {
                FailureKind::Unsupported, ext + " is not known to the running shell",
                "install Plenavue (its install puts the extension in share/gnome-shell/extensions), then " + relogin};
        switch (*r.state) {
        case 1:
            return {FailureKind::ScreenLocked, ext + " is enabled but not serving (is the screen locked?)",
                    "unlock the screen and capture again"};
        case 2:
        case 6:
            return {FailureKind::Unsupported, ext + " is installed but switched off",
                    std::string("run \"gnome-extensions enable ") + kExtensionUuid + "\" or use the Extensions app"};
        case 4:
            return {FailureKind::Unsupported, ext + " does not declare this GNOME Shell version",
                    "install the Plenavue built for this GNOME Shell, then " + relogin};
        default:
            return {FailureKind::Unsupported,
                    ext + " failed to load" + (r.error.empty() ? std::string() : ": " + r.error),
                    "reinstall Plenavue for this GNOME Shell, then " + relogin};
        }
    }
    if (r.apiVersion < kApiVersion)
        return {FailureKind::Unsupported, ext + " still running is older than this Plenavue", relogin};
    if (!r.allowed.empty() && std::find(r.allowed.begin(), r.allowed.end(), r.self) == r.allowed.end()) {
        std::string list;
        for (const auto& a : r.allowed) list += (list.empty() ? "" : ", ") + a;
        return {FailureKind::NotAuthorised, ext + " serves only " + list + ", not " + r.self,
                "run that program, or reinstall Plenavue so that both agree"};
    }
    return {};
}

}  // namespace pv::gnome
