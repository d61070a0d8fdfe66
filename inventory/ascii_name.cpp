#include "inventory/ascii_name.h"

#include <cstdint>

namespace pv {

namespace {

constexpr size_t kMaxNameBytes = 127;

// Length of the UTF-8 sequence that starts with lead; 1 for a stray byte, so
// that malformed text still yields one substitute per bad byte.
size_t sequenceLength(uint8_t lead) {
    if (lead >= 0xF0 && lead <= 0xF4) return 4;
    if (lead >= 0xE0) return lead <= 0xEF ? 3 : 1;
    if (lead >= 0xC2) return 2;
    return 1;
}

bool isContinuation(uint8_t byte) { return (byte & 0xC0) == 0x80; }

}  // namespace

std::string asciiNodeName(std::string_view text, const std::string& fallback) {
    std::string out;
    for (size_t i = 0; i < text.size() && out.size() < kMaxNameBytes;) {
        const auto byte = static_cast<uint8_t>(text[i]);
        if (byte == 0) break;  // the name ends at a NUL, as a C string would
        if (byte < 0x80) {
            out.push_back(static_cast<char>(byte));
            ++i;
            continue;
        }
        // One '?' per code point outside ASCII.
        size_t length = sequenceLength(byte);
        size_t j = 1;
        while (j < length && i + j < text.size() && isContinuation(static_cast<uint8_t>(text[i + j]))) ++j;
        out.push_back('?');
        i += j;
    }
    return out.size() > 1 ? out : fallback;
}

}  // namespace pv
