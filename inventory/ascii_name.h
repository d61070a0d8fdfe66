#pragma once
// Node names as the outline shows them: plain ASCII, at most 127 bytes.

#include <string>
#include <string_view>

namespace pv {

// text (UTF-8) with every code point outside ASCII replaced by '?', cut at a
// NUL byte and at 127 bytes; fallback when the result has fewer than 2 characters.
std::string asciiNodeName(std::string_view text, const std::string& fallback);

}  // namespace pv
