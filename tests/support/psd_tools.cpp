#include "tests/support/psd_tools.h"

#include <functional>
#include <stdexcept>

#include "tests/support/process.h"

namespace pv::test {

bool psdToolsAvailable() { return runProgram({"/usr/bin/python3", "-c", "import psd_tools, numpy"}) == 0; }

nlohmann::json psdToolsDump(const std::string& psdPath, bool withPixels) {
    std::vector<std::string> argv{"/usr/bin/python3", std::string(PV_SOURCE_DIR) + "/tests/tools/psd_dump.py", psdPath};
    if (withPixels) argv.push_back("--pixels");
    std::string out, err;
    if (runProgram(argv, {}, &out, &err) != 0) throw std::runtime_error("psd-tools refused " + psdPath + ": " + err);
    return nlohmann::json::parse(out);
}

std::vector<uint8_t> fromBase64(const std::string& text) {
    static const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    int value[256];
    std::fill(std::begin(value), std::end(value), -1);
    for (size_t i = 0; i < digits.size(); ++i) value[static_cast<unsigned char>(digits[i])] = static_cast<int>(i);
    std::vector<uint8_t> out;
    uint32_t acc = 0;
    int bits = 0;
    for (char c : text) {
        const int v = value[static_cast<unsigned char>(c)];
        if (v < 0) continue;  // padding
        acc = (acc << 6) | static_cast<uint32_t>(v);
        if ((bits += 6) >= 8) out.push_back(static_cast<uint8_t>(acc >> (bits -= 8)));
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
