#pragma once
// Our PSD files as a reader we did not write sees them: psd-tools, through
// tests/tools/psd_dump.py, run with the system's Python.

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/image.h"

namespace pv::test {

// Whether Debian's python3 can import psd_tools and numpy.
bool psdToolsAvailable();

// The dump's JSON (pixels as base64 when asked). Throws with what the reader
// said when it refuses the file.
nlohmann::json psdToolsDump(const std::string& psdPath, bool withPixels = false);

// Bytes of a base64 text.
std::vector<uint8_t> fromBase64(const std::string& text);

// One pixel layer of a dump made with pixels: where it stands and its
// pixels as stored (straight colour).
struct ReadLayer {
    std::string name;
    int left = 0, top = 0, right = 0, bottom = 0;
    std::vector<uint8_t> rgba;
};

// Every pixel layer of the dump, bottom of the stack first, groups opened.
std::vector<ReadLayer> pixelLayersOf(const nlohmann::json& dump);

// Straight RGBA pixels as a picture (premultiplied, rounded).
Image premultipliedImage(const std::vector<uint8_t>& straightRgba, int width, int height);

// The layers drawn bottom first over transparency on the document's canvas,
// as a reader that rebuilds the picture from the layers would.
Image composedLayers(const nlohmann::json& dump);

}  // namespace pv::test
