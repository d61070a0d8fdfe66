#pragma once
// Node names as the tree, the outline, `plenavue list` and the files show
// them: Unicode, sanitised, at most 127 characters.

#include <cstddef>
#include <string>
#include <string_view>

namespace pv {

// Longest node name, in characters (code points).
inline constexpr size_t kMaxNodeNameCharacters = 127;

// text cut at a NUL byte (as a C string ends), sanitised (sanitizedText: valid
// UTF-8 without control characters) and cut to 127 characters on a character
// boundary; fallback when fewer than 2 characters are left.
std::string nodeName(std::string_view text, const std::string& fallback);

}  // namespace pv
