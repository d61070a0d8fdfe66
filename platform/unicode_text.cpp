#include "platform/unicode_text.h"

#include <cstdint>

namespace pv {

namespace {

struct Lead {
    int length;          // bytes in the sequence, 0 for a byte that cannot start one
    uint8_t secondLow;   // the second byte's range, narrower than 80..BF after some leads
    uint8_t secondHigh;  // (no overlong forms, no surrogates, nothing past U+10FFFF)
};

Lead leadOf(uint8_t b) {
    if (b < 0x80) return {1, 0, 0};
    if (b >= 0xC2 && b <= 0xDF) return {2, 0x80, 0xBF};
    if (b == 0xE0) return {3, 0xA0, 0xBF};
    if (b == 0xED) return {3, 0x80, 0x9F};
    if (b >= 0xE1 && b <= 0xEF) return {3, 0x80, 0xBF};
    if (b == 0xF0) return {4, 0x90, 0xBF};
    if (b >= 0xF1 && b <= 0xF3) return {4, 0x80, 0xBF};
    if (b == 0xF4) return {4, 0x80, 0x8F};
    return {0, 0, 0};
}

// Decodes one character at text[i]; advances i past it (or past the maximal
// invalid part, which stands for one U+FFFD).
char32_t nextCodePoint(std::string_view text, size_t& i) {
    const auto b = static_cast<uint8_t>(text[i]);
    const Lead lead = leadOf(b);
    if (lead.length == 1) {
        ++i;
        return b;
    }
    if (lead.length == 0) {
        ++i;
        return kReplacementCharacter;
    }
    char32_t c = b & (0xFF >> (lead.length + 1));
    size_t used = 1;
    for (; used < static_cast<size_t>(lead.length); ++used) {
        if (i + used >= text.size()) break;
        const auto next = static_cast<uint8_t>(text[i + used]);
        const uint8_t low = used == 1 ? lead.secondLow : 0x80;
        const uint8_t high = used == 1 ? lead.secondHigh : 0xBF;
        if (next < low || next > high) break;
        c = (c << 6) | (next & 0x3F);
    }
    i += used;
    return used == static_cast<size_t>(lead.length) ? c : kReplacementCharacter;
}

}  // namespace

std::u32string decodeUtf8(std::string_view utf8) {
    std::u32string out;
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();) out.push_back(nextCodePoint(utf8, i));
    return out;
}

void appendUtf8(std::string& out, char32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = kReplacementCharacter;
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

std::string encodeUtf8(std::u32string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char32_t c : text) appendUtf8(out, c);
    return out;
}

std::u16string utf8ToUtf16(std::string_view utf8) {
    std::u16string out;
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();) {
        const char32_t c = nextCodePoint(utf8, i);
        if (c < 0x10000) {
            out.push_back(static_cast<char16_t>(c));
        } else {
            out.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
        }
    }
    return out;
}

std::string repairUtf8(std::string_view bytes) { return encodeUtf8(decodeUtf8(bytes)); }

std::string latin1ToUtf8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (char b : bytes) appendUtf8(out, static_cast<uint8_t>(b));
    return out;
}

bool isControlCharacter(char32_t c) { return c < 0x20 || (c >= 0x7F && c <= 0x9F); }

std::string sanitizedText(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (size_t i = 0; i < bytes.size();) {
        const char32_t c = nextCodePoint(bytes, i);
        if (!isControlCharacter(c)) appendUtf8(out, c);
    }
    return out;
}

size_t codePointCount(std::string_view utf8) {
    size_t n = 0;
    for (char b : utf8) n += (static_cast<uint8_t>(b) & 0xC0) != 0x80;
    return n;
}

std::string firstCodePoints(std::string_view utf8, size_t maxCodePoints) {
    size_t count = 0;
    for (size_t i = 0; i < utf8.size(); ++i) {
        if ((static_cast<uint8_t>(utf8[i]) & 0xC0) == 0x80) continue;  // inside a character
        if (count == maxCodePoints) return std::string(utf8.substr(0, i));
        ++count;
    }
    return std::string(utf8);
}

}  // namespace pv
