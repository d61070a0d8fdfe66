#pragma once
// X text properties (WM_NAME, _NET_WM_NAME) as UTF-8, whatever their type.
// No xcb here: the window list reads the bytes and their type, this decodes.

#include <string>
#include <string_view>

namespace pv::x11 {

enum class TextEncoding {
    Utf8,          // UTF8_STRING, and any type we do not know
    Latin1,        // STRING: ISO 8859-1
    CompoundText,  // COMPOUND_TEXT: ISO 2022 segments
};

// The text as valid UTF-8 (invalid bytes become U+FFFD). Control characters
// are kept; sanitizedText removes them where names are made.
std::string decodeTextProperty(std::string_view bytes, TextEncoding encoding);

// COMPOUND_TEXT: ISO 2022 segments. ASCII and ISO 8859-1 (the initial state,
// ESC ( B, ESC - A) and UTF-8 segments (ESC % G ... ESC % @) are read here;
// the other ISO 8859 parts (ESC - F), JIS X 0201 (ESC ( J, ESC ) I), GB 2312,
// JIS X 0208, KS C 5601 and JIS X 0212 (ESC $ ( F, ESC $ ) F) and extended
// segments (ESC % / F M L name STX ...) of any set the C library's iconv
// knows through iconv. Each character of a set neither knows becomes one
// U+FFFD; direction sequences (CSI ... ]) and unknown escape sequences are
// dropped.
std::string decodeCompoundText(std::string_view bytes);

}  // namespace pv::x11
