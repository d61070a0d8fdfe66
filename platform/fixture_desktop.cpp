#include "platform/fixture_desktop.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <utility>

#include "platform/drop_shadow.h"
#include "platform/png_io.h"

namespace pv {

using nlohmann::json;

struct FixtureDesktop::Data {
    std::string hostName;
    std::vector<ScreenListEntry> screens;
    std::map<uint32_t, std::string> productNames;
    std::vector<WindowListEntry> windows;
    std::map<uint32_t, std::optional<Image>> pictures;  // by window number; nullopt: cannot be captured
    std::map<uint32_t, double> pictureScales;           // scale a window's shadow is drawn at
    std::optional<Image> desktop;
};

namespace {

// Reads one JSON file, turning every problem into "file: key: problem".
class Reader {
public:
    explicit Reader(std::string file) : file_(std::move(file)) {}

    [[noreturn]] void fail(const std::string& key, const std::string& problem) const {
        throw FixtureError(file_ + ": " + key + ": " + problem);
    }

    const json& member(const json& object, const std::string& key, const std::string& path) const {
        auto it = object.find(key);
        if (it == object.end()) fail(path, "missing");
        return *it;
    }

    std::string text(const json& v, const std::string& path) const {
        if (!v.is_string()) fail(path, "must be a string");
        return v.get<std::string>();
    }

    double number(const json& v, const std::string& path) const {
        if (!v.is_number()) fail(path, "must be a number");
        return v.get<double>();
    }

    template <typename Int>
    Int integer(const json& v, const std::string& path) const {
        if (!v.is_number_integer()) fail(path, "must be an integer");
        const auto value = v.get<int64_t>();
        if (value < static_cast<int64_t>(std::numeric_limits<Int>::min()) ||
            value > static_cast<int64_t>(std::numeric_limits<Int>::max())) {
            fail(path, "is out of range");
        }
        return static_cast<Int>(value);
    }

    template <class Space>
    BasicRect<Space> rect(const json& v, const std::string& path) const {
        if (!v.is_array() || v.size() != 4) fail(path, "must be an array of 4 numbers [x, y, width, height]");
        BasicRect<Space> r{number(v[0], path + "[0]"), number(v[1], path + "[1]"), number(v[2], path + "[2]"),
               number(v[3], path + "[3]")};
        if (r.width < 0 || r.height < 0) fail(path, "width and height must not be negative");
        return r;
    }

    std::optional<std::string> optionalText(const json& object, const std::string& key, const std::string& path) const {
        auto it = object.find(key);
        if (it == object.end() || it->is_null()) return std::nullopt;
        return text(*it, path + "." + key);
    }

    Image png(const json& v, const std::string& path) const {
        const auto relative = text(v, path);
        const auto full = (std::filesystem::path(file_).parent_path() / relative).string();
        std::string error;
        auto image = readPNG(full, &error);
        if (!image) fail(path, "cannot read " + full + ": " + error);
        return std::move(*image);
    }

private:
    std::string file_;
};

std::string at(const std::string& array, size_t i) { return array + "[" + std::to_string(i) + "]"; }

double largestScale(const std::vector<ScreenListEntry>& screens) {
    double s = 0;
    for (const auto& screen : screens) s = std::max(s, screen.backingScaleFactor);
    return s > 0 ? s : 1.0;
}

// The largest scale of the screens a window touches (of all screens when it
// touches none), which is what a real window server renders it at.
double scaleOfWindow(const std::vector<ScreenListEntry>& screens, const WindowRect& bounds) {
    double s = 0;
    for (uint32_t id : displaysMeetingRect(screens, bounds, static_cast<uint32_t>(screens.size()))) {
        for (const auto& screen : screens) {
            if (screen.displayId == id) s = std::max(s, screen.backingScaleFactor);
        }
    }
    return s > 0 ? s : largestScale(screens);
}

int pixels(double points, double scale) { return static_cast<int>(std::lround(points * scale)); }

// The screens' union in window-server points.
WindowRect desktopBounds(const std::vector<ScreenListEntry>& screens) {
    WindowRect area;
    if (screens.empty()) return area;
    const double mainHeight = screens[0].frame.height;
    for (const auto& s : screens) area = area.united(toWindowSpace(s.frame, mainHeight));
    return area;
}

// Opaque black under the windows, back to front, as the user would see them.
Image composeDesktop(const FixtureDesktop::Data& d) {
    const WindowRect area = desktopBounds(d.screens);
    const double s = largestScale(d.screens);
    Image canvas = Image::filled(pixels(area.width, s), pixels(area.height, s), 0, 0, 0, 255);
    for (auto it = d.windows.rbegin(); it != d.windows.rend(); ++it) {
        if (it->sharingState == 0) continue;
        const auto& picture = d.pictures.at(it->number);
        if (!picture) continue;
        drawOver(canvas, *picture, pixels(it->bounds.x - area.x, s), pixels(it->bounds.y - area.y, s));
    }
    return canvas;
}

void readScreens(const Reader& r, const json& root, FixtureDesktop::Data& d) {
    const json& screens = r.member(root, "screens", "screens");
    if (!screens.is_array()) r.fail("screens", "must be an array");
    if (screens.empty()) r.fail("screens", "must hold at least the main screen");
    for (size_t i = 0; i < screens.size(); ++i) {
        const std::string path = at("screens", i);
        const json& s = screens[i];
        if (!s.is_object()) r.fail(path, "must be an object");
        ScreenListEntry e;
        e.displayId = r.integer<uint32_t>(r.member(s, "displayId", path + ".displayId"), path + ".displayId");
        if (e.displayId == 0) r.fail(path + ".displayId", "must not be 0");
        for (const auto& earlier : d.screens) {
            if (earlier.displayId == e.displayId) r.fail(path + ".displayId", "is used by an earlier screen");
        }
        e.frame = r.rect<ScreenSpace>(r.member(s, "frame", path + ".frame"), path + ".frame");
        // Every other frame is given relative to the main screen's corner.
        if (i == 0 && (e.frame.x != 0 || e.frame.y != 0)) r.fail(path + ".frame", "the main screen must be at (0, 0)");
        e.backingScaleFactor =
            r.number(r.member(s, "backingScaleFactor", path + ".backingScaleFactor"), path + ".backingScaleFactor");
        if (e.backingScaleFactor <= 0) r.fail(path + ".backingScaleFactor", "must be greater than 0");
        if (auto name = r.optionalText(s, "productName", path)) d.productNames[e.displayId] = *name;
        d.screens.push_back(e);
    }
}

std::optional<Image> readPicture(const Reader& r, const json& w, const std::string& path, const WindowListEntry& e,
                                 double scale) {
    const json& p = r.member(w, "picture", path + ".picture");
    if (p.is_null()) return std::nullopt;
    if (!p.is_object()) r.fail(path + ".picture", "must be an object or null");
    if (auto png = p.find("png"); png != p.end()) return r.png(*png, path + ".picture.png");
    auto fill = p.find("fill");
    if (fill == p.end()) r.fail(path + ".picture", "needs \"fill\" or \"png\"");
    const std::string fillPath = path + ".picture.fill";
    if (!fill->is_array() || fill->size() != 4) r.fail(fillPath, "must be an array of 4 integers [r, g, b, a]");
    uint8_t c[4];
    for (size_t k = 0; k < 4; ++k) c[k] = r.integer<uint8_t>((*fill)[k], fillPath + "[" + std::to_string(k) + "]");
    return Image::filled(pixels(e.bounds.width, scale), pixels(e.bounds.height, scale), c[0], c[1], c[2], c[3]);
}

void readWindows(const Reader& r, const json& root, FixtureDesktop::Data& d) {
    const json& windows = r.member(root, "windows", "windows");
    if (!windows.is_array()) r.fail("windows", "must be an array");
    for (size_t i = 0; i < windows.size(); ++i) {
        const std::string path = at("windows", i);
        const json& w = windows[i];
        if (!w.is_object()) r.fail(path, "must be an object");
        WindowListEntry e;
        e.number = r.integer<uint32_t>(r.member(w, "number", path + ".number"), path + ".number");
        if (d.pictures.count(e.number)) r.fail(path + ".number", "is used by an earlier window");
        e.ownerName = r.optionalText(w, "ownerName", path);
        e.ownerPID = r.integer<int32_t>(r.member(w, "ownerPID", path + ".ownerPID"), path + ".ownerPID");
        e.title = r.optionalText(w, "title", path);
        e.applicationName = r.optionalText(w, "applicationName", path);
        e.applicationIcon = r.optionalText(w, "applicationIcon", path);
        e.layer = w.contains("layer") ? r.integer<int32_t>(w["layer"], path + ".layer") : 0;
        e.sharingState = w.contains("sharingState") ? r.integer<int32_t>(w["sharingState"], path + ".sharingState") : 1;
        e.bounds = r.rect<WindowSpace>(r.member(w, "bounds", path + ".bounds"), path + ".bounds");
        const double scale = scaleOfWindow(d.screens, e.bounds);
        d.pictures[e.number] = readPicture(r, w, path, e, scale);
        d.pictureScales[e.number] = scale;
        d.windows.push_back(e);
    }
}

}  // namespace

std::unique_ptr<FixtureDesktop> FixtureDesktop::load(const std::string& path) {
    const Reader r(path);
    std::ifstream in(path);
    if (!in) r.fail("(file)", "cannot be read");
    json root;
    try {
        root = json::parse(in);
    } catch (const json::parse_error& e) {
        r.fail("(file)", std::string("malformed JSON: ") + e.what());
    }
    if (!root.is_object()) r.fail("(file)", "must hold a JSON object");

    auto d = std::make_unique<Data>();
    d->hostName = r.text(r.member(root, "hostName", "hostName"), "hostName");
    readScreens(r, root, *d);
    readWindows(r, root, *d);
    if (auto desktop = root.find("desktop"); desktop != root.end() && !desktop->is_null()) {
        if (!desktop->is_object()) r.fail("desktop", "must be an object");
        d->desktop = r.png(r.member(*desktop, "png", "desktop.png"), "desktop.png");
    } else {
        d->desktop = composeDesktop(*d);
    }
    return std::unique_ptr<FixtureDesktop>(new FixtureDesktop(std::move(d)));
}

FixtureDesktop::FixtureDesktop(std::unique_ptr<Data> data) : data_(std::move(data)) {}
FixtureDesktop::~FixtureDesktop() = default;

std::string FixtureDesktop::hostName() { return data_->hostName; }
std::vector<ScreenListEntry> FixtureDesktop::screenList() { return data_->screens; }

std::optional<std::string> FixtureDesktop::productName(uint32_t displayId) {
    auto it = data_->productNames.find(displayId);
    if (it == data_->productNames.end()) return std::nullopt;
    return it->second;
}

std::vector<WindowListEntry> FixtureDesktop::windowList() { return data_->windows; }

std::optional<std::vector<uint32_t>> FixtureDesktop::displaysOfRect(const WindowRect& bounds, uint32_t maxCount) {
    return displaysMeetingRect(data_->screens, bounds, maxCount);
}

// Everything read here was fixed at load time, so concurrent calls are safe.
std::optional<Image> FixtureDesktop::windowPicture(const std::optional<WindowRect>&, uint32_t windowNumber, bool framing) {
    auto it = data_->pictures.find(windowNumber);
    if (it == data_->pictures.end() || !it->second) return std::nullopt;
    if (framing) return addDropShadow(*it->second, data_->pictureScales.at(windowNumber));
    return it->second;
}

std::optional<Image> FixtureDesktop::desktopPicture() { return data_->desktop; }

}  // namespace pv
