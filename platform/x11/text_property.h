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

// COMPOUND_TEXT. Decoded: ASCII and ISO 8859-1 (the initial state, and
// ESC ( B, ESC - A), UTF-8 segments (ESC % G ... ESC % @) and extended
// segments (ESC % / F M L name STX ...) named "utf-8", "iso10646-1" or
// "iso8859-1". Every character of another character set (ESC - F for Greek,
// ESC $ ( B for JIS X 0208, ...) becomes one U+FFFD; direction sequences
// (CSI ... ]) and unknown escape sequences are dropped.
std::string decodeCompoundText(std::string_view bytes);

}  // namespace pv::x11
