#include "platform/x11/text_property.h"

#include <algorithm>
#include <cctype>
#include <cstdint>

#include "platform/unicode_text.h"

namespace pv::x11 {

namespace {

constexpr char kEscape = 0x1B;
constexpr uint8_t kCsi = 0x9B;

// What a half of the code table (GL: 0x21..0x7E, GR: 0xA0..0xFF) holds.
enum class Half {
    Ascii,       // GL only
    Latin1,      // GR only: ISO 8859-1's right half
    OtherByte,   // a 94- or 96-character set we do not decode: one byte per character
    OtherPair,   // a 94×94 set (JIS X 0208, GB 2312, KS C 5601): two bytes per character
};

std::string lowercase(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

void appendReplacements(std::string& out, size_t count) {
    for (size_t k = 0; k < count; ++k) appendUtf8(out, kReplacementCharacter);
}

// An extended segment's text: "name STX text", octetsPerCharacter 0 for a
// variable number.
void appendExtendedSegment(std::string& out, std::string_view segment, int octetsPerCharacter) {
    const size_t stx = segment.find('\x02');
    if (stx == std::string_view::npos) return appendReplacements(out, 1);
    const std::string name = lowercase(segment.substr(0, stx));
    const std::string_view text = segment.substr(stx + 1);
    if (name == "utf-8" || (name == "iso10646-1" && octetsPerCharacter == 0)) {
        out += repairUtf8(text);
    } else if (name == "iso10646-1" && octetsPerCharacter == 2) {
        for (size_t k = 0; k + 1 < text.size(); k += 2)
            appendUtf8(out, static_cast<char32_t>(static_cast<uint8_t>(text[k]) << 8 | static_cast<uint8_t>(text[k + 1])));
    } else if (name == "iso8859-1") {
        out += latin1ToUtf8(text);
    } else {
        appendReplacements(out, octetsPerCharacter > 0 ? (text.size() + octetsPerCharacter - 1) / octetsPerCharacter : 1);
    }
}

}  // namespace

std::string decodeCompoundText(std::string_view in) {
    std::string out;
    Half gl = Half::Ascii;
    Half gr = Half::Latin1;
    size_t i = 0;
    const size_t n = in.size();
    const auto byteAt = [&](size_t k) { return static_cast<uint8_t>(in[k]); };

    while (i < n) {
        const uint8_t b = byteAt(i);
        if (b == static_cast<uint8_t>(kEscape)) {
            // ESC, intermediate bytes 0x20..0x2F, one final byte 0x30..0x7E.
            size_t k = i + 1;
            while (k < n && byteAt(k) >= 0x20 && byteAt(k) <= 0x2F) ++k;
            if (k >= n) break;  // cut short: nothing readable follows
            const std::string_view intermediates = in.substr(i + 1, k - i - 1);
            const char final = in[k];
            i = k + 1;
            if (intermediates == "(") {
                gl = final == 'B' ? Half::Ascii : Half::OtherByte;
            } else if (intermediates == ")") {
                gr = Half::OtherByte;
            } else if (intermediates == "-") {
                gr = final == 'A' ? Half::Latin1 : Half::OtherByte;
            } else if (intermediates == "$(" || intermediates == "$") {
                gl = Half::OtherPair;
            } else if (intermediates == "$)") {
                gr = Half::OtherPair;
            } else if (intermediates == "%" && final == 'G') {
                // UTF-8 up to ESC % @ (ESC never occurs inside UTF-8).
                const size_t end = in.find("\x1b%@", i);
                out += repairUtf8(in.substr(i, end == std::string_view::npos ? n - i : end - i));
                i = end == std::string_view::npos ? n : end + 3;
            } else if (intermediates == "%/" && final >= '0' && final <= '4') {
                if (i + 2 > n) break;
                const size_t length = static_cast<size_t>(byteAt(i) & 0x7F) << 7 | (byteAt(i + 1) & 0x7F);
                const std::string_view segment = in.substr(i + 2, std::min(length, n - i - 2));
                appendExtendedSegment(out, segment, final - '0');
                i += 2 + segment.size();
            }
            continue;  // other sequences switch nothing we decode
        }
        if (b == kCsi) {
            // Direction changes: CSI, parameters 0x30..0x3F, intermediates 0x20..0x2F, final 0x40..0x7E.
            ++i;
            while (i < n && byteAt(i) >= 0x20 && byteAt(i) <= 0x3F) ++i;
            if (i < n) ++i;
            continue;
        }
        if (b <= 0x20 || b == 0x7F || (b >= 0x80 && b < 0xA0)) {
            appendUtf8(out, b);  // space and controls, whatever the sets
            ++i;
            continue;
        }
        const Half half = b < 0x80 ? gl : gr;
        if (half == Half::Ascii) {
            out.push_back(static_cast<char>(b));
        } else if (half == Half::Latin1) {
            appendUtf8(out, b);
        } else {
            appendUtf8(out, kReplacementCharacter);
            // A two-byte character takes its second byte from the same half.
            if (half == Half::OtherPair && i + 1 < n && (byteAt(i + 1) & 0x80) == (b & 0x80) &&
                (byteAt(i + 1) & 0x7F) > 0x20 && (byteAt(i + 1) & 0x7F) < 0x7F)
                ++i;
        }
        ++i;
    }
    return out;
}

std::string decodeTextProperty(std::string_view bytes, TextEncoding encoding) {
    switch (encoding) {
    case TextEncoding::Latin1: return latin1ToUtf8(bytes);
    case TextEncoding::CompoundText: return decodeCompoundText(bytes);
    case TextEncoding::Utf8: break;
    }
    return repairUtf8(bytes);
}

}  // namespace pv::x11
