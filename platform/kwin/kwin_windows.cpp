#include "platform/kwin/kwin_windows.h"

#include <map>
#include <nlohmann/json.hpp>

#include "platform/x11/window_role.h"

namespace pv::kwin {

namespace {

using nlohmann::json;

GlobalRect rectOf(const json& v) {
    if (!v.is_array() || v.size() != 4) return {};
    return {v[0].get<double>(), v[1].get<double>(), v[2].get<double>(), v[3].get<double>()};
}

std::string text(const json& o, const char* key) {
    auto it = o.find(key);
    return it != o.end() && it->is_string() ? it->get<std::string>() : std::string();
}

bool flag(const json& o, const char* key, bool otherwise = false) {
    auto it = o.find(key);
    return it != o.end() && it->is_boolean() ? it->get<bool>() : otherwise;
}

// The layer of the window's kind; the shell's windows carry the owners the
// inventory's system-window rules know, as on X11.
x11::WindowRole roleOf(const KWinWindow& w) {
    using namespace x11;
    if (w.desktop) return {kDesktopLayer, kDesktopOwner, kDesktopTitle};
    if (w.dock) return {kDockLayer, kDockOwner, std::nullopt};
    if (w.notification || w.onScreenDisplay) return {kNotificationLayer, kNotificationOwner, std::nullopt};
    if (w.popup) return {kMenuLayer, std::nullopt, std::nullopt};
    if (w.fullScreen) return {kFullscreenLayer, std::nullopt, std::nullopt};
    if (w.keepAbove) return {kFloatingLayer, std::nullopt, std::nullopt};
    if (w.keepBelow) return {kBelowLayer, std::nullopt, std::nullopt};
    return {kNormalLayer, std::nullopt, std::nullopt};
}

}  // namespace

KWinListing parseListing(const std::string& text_) {
    json doc;
    try {
        doc = json::parse(text_);
    } catch (const json::exception& e) {
        throw ListingError(std::string("KWin's window list is not JSON: ") + e.what());
    }
    if (!doc.is_object() || !doc.contains("windows") || !doc["windows"].is_array())
        throw ListingError("KWin's window list has no windows");
    KWinListing listing;
    listing.api = doc.value("api", 0);
    if (doc.contains("screens") && doc["screens"].is_array()) {
        for (const json& s : doc["screens"]) {
            KWinScreen screen;
            screen.name = text(s, "name");
            screen.geometry = rectOf(s.value("geometry", json()));
            screen.scale = s.contains("scale") && s["scale"].is_number() ? s["scale"].get<double>() : 1.0;
            if (screen.scale <= 0) screen.scale = 1.0;
            listing.screens.push_back(screen);
        }
    }
    for (const json& o : doc["windows"]) {
        if (!o.is_object()) continue;
        KWinWindow w;
        w.id = text(o, "id");
        w.frame = rectOf(o.value("frame", json()));
        w.buffer = rectOf(o.value("buffer", json()));
        w.caption = text(o, "caption");
        w.resourceClass = text(o, "resourceClass");
        w.resourceName = text(o, "resourceName");
        w.desktopFileName = text(o, "desktopFileName");
        w.pid = o.contains("pid") && o["pid"].is_number() ? o["pid"].get<int32_t>() : 0;
        w.x11 = flag(o, "x11");
        w.dock = flag(o, "dock");
        w.desktop = flag(o, "desktop");
        w.notification = flag(o, "notification");
        w.onScreenDisplay = flag(o, "onScreenDisplay");
        w.popup = flag(o, "popup");
        w.minimized = flag(o, "minimized");
        w.onCurrentDesktop = flag(o, "onCurrentDesktop", true);
        w.hidden = flag(o, "hidden");
        w.keepAbove = flag(o, "keepAbove");
        w.keepBelow = flag(o, "keepBelow");
        w.fullScreen = flag(o, "fullScreen");
        if (!w.id.empty()) listing.windows.push_back(std::move(w));
    }
    return listing;
}

bool isShown(const KWinWindow& w) { return !w.minimized && !w.hidden && w.onCurrentDesktop && !w.frame.isEmpty(); }

std::vector<ListedWindow> listedWindows(const KWinListing& listing, const EntryRules& rules) {
    std::vector<ListedWindow> out;
    std::map<std::string, int32_t> standIns;  // application -> pid stand-in
    std::vector<int32_t> kindLayers;
    for (auto it = listing.windows.rbegin(); it != listing.windows.rend(); ++it) {
        const KWinWindow& w = *it;
        if (!isShown(w)) continue;
        const x11::WindowRole role = roleOf(w);
        ListedWindow listed;
        listed.window = w;
        WindowListEntry& e = listed.entry;
        e.number = rules.numberOf(w.id);
        e.handle.key = w.id;
        e.sharingState = w.pid > 0 && w.pid == rules.ownPid ? 0 : 1;
        e.ownerName = role.owner ? *role.owner : rules.applicationName(w);
        e.title = role.title ? *role.title : w.caption;
        e.bounds = {w.frame.x - rules.mainScreen.x, w.frame.y - rules.mainScreen.y, w.frame.width, w.frame.height};
        // X clients that state no pid: one number per application, never a real pid.
        if (w.pid > 0) {
            e.ownerPID = w.pid;
        } else {
            const std::string app = w.resourceClass + "\n" + w.resourceName;
            auto [at, added] = standIns.emplace(app, static_cast<int32_t>((1 << 30) | standIns.size()));
            e.ownerPID = at->second;
        }
        kindLayers.push_back(role.layer);
        out.push_back(std::move(listed));
    }
    const auto levels = x11::stackingLevels(kindLayers);
    for (size_t i = 0; i < out.size(); ++i) out[i].entry.layer = levels[i];
    return out;
}

}  // namespace pv::kwin
