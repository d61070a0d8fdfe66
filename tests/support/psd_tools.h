#pragma once
// Our PSD files as a reader we did not write sees them: psd-tools, through
// tests/tools/psd_dump.py, run with the system's Python.

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace pv::test {

// Whether Debian's python3 can import psd_tools and numpy.
bool psdToolsAvailable();

// The dump's JSON (pixels as base64 when asked). Throws with what the reader
// said when it refuses the file.
nlohmann::json psdToolsDump(const std::string& psdPath, bool withPixels = false);

// Bytes of a base64 text.
std::vector<uint8_t> fromBase64(const std::string& text);

}  // namespace pv::test
