#include "platform/fixture_desktop.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <set>
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
    // Pictures are handed over, not copied, the first time they are asked
    // for; later asks make them again from the file's description.
    std::map<uint32_t, std::function<Image()>> remakePicture;
    std::function<Image()> remakeDesktop;
    std::mutex mutex;              // guards the three below
    std::set<uint32_t> handedOut;  // windows whose picture left `pictures`
    bool desktopHandedOut = false;
};

namespace {

// A JSON library message without its "[json.exception....] " label.
std::string jsonMessage(const json::exception& e) {
    const std::string what = e.what();
    const size_t label = what.rfind("] ", what.find(' '));
    return label == std::string::npos ? what : what.substr(label + 2);
}

// Why path cannot be read as a file (a folder, a device, missing), or empty.
std::string notAFile(const std::string& path) {
    std::error_code ec;
    const auto status = std::filesystem::status(path, ec);
    if (ec) return ec.message();
    if (std::filesystem::is_directory(status)) return "is a folder, not a file";
    if (!std::filesystem::is_regular_file(status)) return "is not a regular file";
    return {};
}

// Reads one JSON file, turning every problem into "file: key: problem".
class Reader {
public:
    Reader(std::string file, uint64_t maxPicturePixels) : file_(std::move(file)), maxPicturePixels_(maxPicturePixels) {}

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

    // A number from -limit to limit.
    double number(const json& v, const std::string& path, double limit = kMaxCoordinate) const {
        if (!v.is_number()) fail(path, "must be a number");
        const double value = v.get<double>();
        if (!(value >= -limit && value <= limit)) fail(path, fmt::format("is out of range (-{0} to {0})", limit));
        return value;
    }

    template <typename Int>
    Int integer(const json& v, const std::string& path) const {
        if (!v.is_number_integer()) fail(path, "must be an integer");
        // Compared as the kind of integer JSON holds, so that no value wraps on the way.
        const bool fits = v.is_number_unsigned()
                              ? v.get<uint64_t>() <= static_cast<uint64_t>(std::numeric_limits<Int>::max())
                              : v.get<int64_t>() >= static_cast<int64_t>(std::numeric_limits<Int>::min()) &&
                                    v.get<int64_t>() <= static_cast<int64_t>(std::numeric_limits<Int>::max());
        if (!fits) {
            fail(path, fmt::format("is out of range ({} to {})", static_cast<int64_t>(std::numeric_limits<Int>::min()),
                                   static_cast<uint64_t>(std::numeric_limits<Int>::max())));
        }
        return v.is_number_unsigned() ? static_cast<Int>(v.get<uint64_t>()) : static_cast<Int>(v.get<int64_t>());
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

    // A function that reads the PNG again (an empty picture when that fails).
    std::function<Image()> pngAgain(const json& v, const std::string& path) const {
        const auto full = (std::filesystem::path(file_).parent_path() / text(v, path)).string();
        return [full, max = maxPicturePixels_] { return readPNG(full, nullptr, max).value_or(Image()); };
    }

    Image png(const json& v, const std::string& path) const {
        const auto relative = text(v, path);
        const auto full = (std::filesystem::path(file_).parent_path() / relative).string();
        if (const auto problem = notAFile(full); !problem.empty()) fail(path, "cannot read " + full + ": " + problem);
        std::string error;
        auto image = readPNG(full, &error, maxPicturePixels_);
        if (!image) fail(path, "cannot read " + full + ": " + error);
        return std::move(*image);
    }

    // points * scale rounded, when it is a picture side within the limits.
    int pixelSide(double points, double scale, const std::string& path) const {
        const double pixels = std::round(points * scale);
        if (!pictureSide(pixels))
            fail(path, fmt::format("would be {} pixels at scale {}; a picture side is at most {}", pixels, scale,
                                   kMaxPictureSide));
        return static_cast<int>(pixels);
    }

    // Pictures of more pixels than the limit are refused before they are made.
    void checkPixelCount(int w, int h, const std::string& path) const {
        if (static_cast<uint64_t>(w) * static_cast<uint64_t>(h) > maxPicturePixels_)
            fail(path,
                 fmt::format("a picture of {}x{} pixels is more than the {} pixels allowed", w, h, maxPicturePixels_));
    }

private:
    std::string file_;
    uint64_t maxPicturePixels_;
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

// A position in pixels for drawing: far-off positions are held at a distance
// no picture reaches, so the conversion never overflows.
int position(double points, double scale) {
    constexpr double far = 1 << 30;
    return static_cast<int>(std::clamp(std::round(points * scale), -far, far));
}

// The screens' union in window-server points.
WindowRect desktopBounds(const std::vector<ScreenListEntry>& screens) {
    WindowRect area;
    if (screens.empty()) return area;
    const double mainHeight = screens[0].frame.height;
    for (const auto& s : screens) area = area.united(toWindowSpace(s.frame, mainHeight));
    return area;
}

// Opaque black under the windows, back to front, as the user would see them.
Image composeDesktop(int w, int h, const FixtureDesktop::Data& d, bool remade) {
    const WindowRect area = desktopBounds(d.screens);
    const double s = largestScale(d.screens);
    Image canvas = Image::filled(w, h, 0, 0, 0, 255);
    for (auto it = d.windows.rbegin(); it != d.windows.rend(); ++it) {
        if (it->sharingState == 0) continue;
        const auto& picture = d.pictures.at(it->number);
        if (!picture) continue;
        const int x = position(it->bounds.x - area.x, s), y = position(it->bounds.y - area.y, s);
        if (remade)
            drawOver(canvas, d.remakePicture.at(it->number)(), x, y);
        else
            drawOver(canvas, *picture, x, y);
    }
    return canvas;
}

Image composeDesktop(const Reader& r, const FixtureDesktop::Data& d) {
    const WindowRect area = desktopBounds(d.screens);
    const double s = largestScale(d.screens);
    const int w = r.pixelSide(area.width, s, "screens"), h = r.pixelSide(area.height, s, "screens");
    r.checkPixelCount(w, h, "screens");
    return composeDesktop(w, h, d, false);
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
        e.backingScaleFactor = r.number(r.member(s, "backingScaleFactor", path + ".backingScaleFactor"),
                                        path + ".backingScaleFactor", kMaxBackingScale);
        if (e.backingScaleFactor <= 0) r.fail(path + ".backingScaleFactor", "must be greater than 0");
        if (auto name = r.optionalText(s, "productName", path)) d.productNames[e.displayId] = *name;
        d.screens.push_back(e);
    }
}

std::optional<Image> readPicture(const Reader& r, const json& w, const std::string& path, const WindowListEntry& e,
                                 double scale, std::function<Image()>& remake) {
    const json& p = r.member(w, "picture", path + ".picture");
    if (p.is_null()) return std::nullopt;
    if (!p.is_object()) r.fail(path + ".picture", "must be an object or null");
    if (auto png = p.find("png"); png != p.end()) {
        remake = r.pngAgain(*png, path + ".picture.png");
        return r.png(*png, path + ".picture.png");
    }
    auto fill = p.find("fill");
    if (fill == p.end()) r.fail(path + ".picture", "needs \"fill\" or \"png\"");
    const std::string fillPath = path + ".picture.fill";
    if (!fill->is_array() || fill->size() != 4) r.fail(fillPath, "must be an array of 4 integers [r, g, b, a]");
    uint8_t c[4];
    for (size_t k = 0; k < 4; ++k) c[k] = r.integer<uint8_t>((*fill)[k], fillPath + "[" + std::to_string(k) + "]");
    // The picture covers the bounds at the scale, no larger than a document takes.
    const std::string boundsPath = path + ".bounds";
    const int width = r.pixelSide(e.bounds.width, scale, boundsPath);
    const int height = r.pixelSide(e.bounds.height, scale, boundsPath);
    r.checkPixelCount(width, height, boundsPath);
    remake = [=] { return Image::filled(width, height, c[0], c[1], c[2], c[3]); };
    return Image::filled(width, height, c[0], c[1], c[2], c[3]);
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
        d.pictures[e.number] = readPicture(r, w, path, e, scale, d.remakePicture[e.number]);
        d.pictureScales[e.number] = scale;
        d.windows.push_back(e);
    }
}

}  // namespace

std::unique_ptr<FixtureDesktop> FixtureDesktop::load(const std::string& path, uint64_t maxPicturePixels) {
    const Reader r(path, maxPicturePixels);
    if (const auto problem = notAFile(path); !problem.empty()) r.fail("(file)", "cannot be read: " + problem);
    std::string text;
    try {
        std::ifstream in(path, std::ios::binary);
        if (!in) r.fail("(file)", "cannot be read");
        text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    } catch (const std::ios_base::failure& e) {
        r.fail("(file)", std::string("cannot be read: ") + e.what());
    }
    json root;
    try {
        root = json::parse(text);
    } catch (const json::out_of_range& e) {
        r.fail("(file)", "a number is out of range: " + jsonMessage(e));
    } catch (const json::exception& e) {
        r.fail("(file)", "malformed JSON: " + jsonMessage(e));
    }
    if (!root.is_object()) r.fail("(file)", "must hold a JSON object");

    auto d = std::make_unique<Data>();
    d->hostName = r.text(r.member(root, "hostName", "hostName"), "hostName");
    readScreens(r, root, *d);
    readWindows(r, root, *d);
    if (auto desktop = root.find("desktop"); desktop != root.end() && !desktop->is_null()) {
        if (!desktop->is_object()) r.fail("desktop", "must be an object");
        d->desktop = r.png(r.member(*desktop, "png", "desktop.png"), "desktop.png");
        d->remakeDesktop = r.pngAgain(r.member(*desktop, "png", "desktop.png"), "desktop.png");
    } else {
        d->desktop = composeDesktop(r, *d);
        d->remakeDesktop = [data = d.get(), w = d->desktop->width, h = d->desktop->height] {
            return composeDesktop(w, h, *data, true);
        };
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

// Which pictures exist was fixed at load time; handing one over is guarded,
// so concurrent calls are safe.
std::optional<Image> FixtureDesktop::windowPicture(const std::optional<WindowRect>&, uint32_t windowNumber,
                                                   bool framing) {
    auto it = data_->pictures.find(windowNumber);
    if (it == data_->pictures.end() || !it->second) return std::nullopt;
    std::optional<Image> picture;
    {
        std::lock_guard lock(data_->mutex);
        if (data_->handedOut.insert(windowNumber).second) picture = std::move(*it->second);
    }
    if (!picture) picture = data_->remakePicture.at(windowNumber)();
    if (picture->isNull()) return std::nullopt;
    if (framing) return addDropShadow(*picture, data_->pictureScales.at(windowNumber));
    return picture;
}

std::optional<Image> FixtureDesktop::desktopPicture() {
    {
        std::lock_guard lock(data_->mutex);
        if (!data_->desktopHandedOut) {
            data_->desktopHandedOut = true;
            return std::move(data_->desktop);
        }
    }
    Image again = data_->remakeDesktop();
    if (again.isNull()) return std::nullopt;
    return again;
}

}  // namespace pv
