#include "tests/x11/xwd_picture.h"

#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <sstream>

namespace pv::test {
namespace {

// The next header number of a PPM, skipping white space and # comments.
std::optional<int> headerNumber(const std::string& bytes, size_t& pos) {
    while (pos < bytes.size()) {
        if (bytes[pos] == '#') {
            while (pos < bytes.size() && bytes[pos] != '\n') ++pos;
        } else if (std::isspace(static_cast<unsigned char>(bytes[pos]))) {
            ++pos;
        } else {
            break;
        }
    }
    size_t end = pos;
    while (end < bytes.size() && std::isdigit(static_cast<unsigned char>(bytes[end]))) ++end;
    if (end == pos) return std::nullopt;
    const int value = std::stoi(bytes.substr(pos, end - pos));
    pos = end;
    return value;
}

}  // namespace

std::optional<Image> decodePPM(const std::string& bytes) {
    if (bytes.compare(0, 2, "P6") != 0) return std::nullopt;
    size_t pos = 2;
    auto width = headerNumber(bytes, pos);
    auto height = headerNumber(bytes, pos);
    auto maxValue = headerNumber(bytes, pos);
    if (!width || !height || maxValue != 255) return std::nullopt;
    ++pos;  // the single white-space byte before the samples
    const size_t count = static_cast<size_t>(*width) * *height;
    if (bytes.size() < pos + 3 * count) return std::nullopt;
    Image image(*width, *height);
    for (size_t i = 0; i < count; ++i) {
        image.pixels[4 * i + 0] = static_cast<uint8_t>(bytes[pos + 3 * i + 0]);
        image.pixels[4 * i + 1] = static_cast<uint8_t>(bytes[pos + 3 * i + 1]);
        image.pixels[4 * i + 2] = static_cast<uint8_t>(bytes[pos + 3 * i + 2]);
        image.pixels[4 * i + 3] = 255;
    }
    return image;
}

std::optional<Image> xwdPicture(XvfbSession& session, xcb_window_t window) {
    char path[] = "/tmp/pv-xwd-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) return std::nullopt;
    close(fd);
    std::optional<Image> image;
    try {
        session.run({"xwd", "-silent", "-id", std::to_string(window), "-out", path});
        image = decodePPM(session.run({"convert", std::string("xwd:") + path, "-depth", "8", "ppm:-"}));
    } catch (const std::exception&) {
        image.reset();
    }
    std::remove(path);
    return image;
}

}  // namespace pv::test
