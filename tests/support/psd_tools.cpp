#include "tests/support/psd_tools.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>

#include <unistd.h>

namespace pv::test {

namespace {

constexpr const char* kPython = "/usr/bin/python3";

std::string quoted(const std::string& s) {
    std::string out = "'";
    for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

}  // namespace

bool psdToolsAvailable() {
    const std::string cmd = std::string(kPython) + " -c 'import psd_tools, numpy' >/dev/null 2>&1";
    return std::system(cmd.c_str()) == 0;
}

nlohmann::json psdToolsDump(const std::string& psdPath, bool withPixels) {
    const auto errPath = std::filesystem::temp_directory_path() /
                         ("pv-psd-dump-" + std::to_string(::getpid()) + "-" + std::to_string(std::rand()) + ".err");
    const std::string cmd = std::string(kPython) + " " + PV_SOURCE_DIR + "/tests/tools/psd_dump.py " +
                            quoted(psdPath) + (withPixels ? " --pixels" : "") + " 2>" + quoted(errPath.string());
    FILE* pipe = popen(cmd.c_str(), "r");
    if (!pipe) throw std::runtime_error("cannot run " + cmd);
    std::string out;
    char buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, pipe)) > 0) out.append(buf, n);
    const int status = pclose(pipe);
    std::ifstream errFile(errPath);
    const std::string err((std::istreambuf_iterator<char>(errFile)), std::istreambuf_iterator<char>());
    std::filesystem::remove(errPath);
    if (status != 0) throw std::runtime_error("psd-tools refused " + psdPath + ": " + err);
    return nlohmann::json::parse(out);
}

std::vector<uint8_t> fromBase64(const std::string& text) {
    auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        if (c == '+') return 62;
        if (c == '/') return 63;
        return -1;
    };
    std::vector<uint8_t> out;
    uint32_t acc = 0;
    int bits = 0;
    for (char c : text) {
        const int v = value(c);
        if (v < 0) continue;  // padding
        acc = (acc << 6) | static_cast<uint32_t>(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<uint8_t>(acc >> bits));
        }
    }
    return out;
}

std::vector<ReadLayer> pixelLayersOf(const nlohmann::json& dump) {
    std::vector<ReadLayer> out;
    std::function<void(const nlohmann::json&)> walk = [&](const nlohmann::json& layers) {
        for (const auto& l : layers) {
            if (l.contains("children")) walk(l["children"]);
            if (l["kind"] != "pixel") continue;
            ReadLayer r{l["name"], l["left"], l["top"], l["right"], l["bottom"], {}};
            if (l.contains("pixels") && l["pixels"].contains("rgba"))
                r.rgba = fromBase64(l["pixels"]["rgba"].get<std::string>());
            out.push_back(std::move(r));
        }
    };
    walk(dump["layers"]);
    return out;
}

Image premultipliedImage(const std::vector<uint8_t>& straightRgba, int width, int height) {
    Image image(width, height);
    if (straightRgba.size() < image.pixels.size()) return Image();
    for (size_t i = 0; i < image.pixels.size(); i += 4) {
        const unsigned a = straightRgba[i + 3];
        for (int c = 0; c < 3; ++c) image.pixels[i + c] = static_cast<uint8_t>((straightRgba[i + c] * a + 127) / 255);
        image.pixels[i + 3] = static_cast<uint8_t>(a);
    }
    return image;
}

Image composedLayers(const nlohmann::json& dump) {
    Image canvas(dump["width"].get<int>(), dump["height"].get<int>());
    for (const ReadLayer& layer : pixelLayersOf(dump)) {
        const Image pixels = premultipliedImage(layer.rgba, layer.right - layer.left, layer.bottom - layer.top);
        drawOver(canvas, pixels, layer.left, layer.top);
    }
    return canvas;
}

}  // namespace pv::test
