#pragma once
// Text that people read (titles, application and screen names): UTF-8
// decoding that repairs what is broken, the one sanitising step every name
// takes before it reaches the tree, a terminal or a file, and cuts on
// character boundaries.

#include <cstddef>
#include <string>
#include <string_view>

namespace pv {

inline constexpr char32_t kReplacementCharacter = U'\uFFFD';

// The code points of a UTF-8 text. Every byte sequence that is not valid
// UTF-8 (stray continuation bytes, overlong forms, surrogates, values past
// U+10FFFF, sequences cut short) becomes one U+FFFD per maximal invalid part.
std::u32string decodeUtf8(std::string_view utf8);
void appendUtf8(std::string& out, char32_t codePoint);
std::string encodeUtf8(std::u32string_view text);
// UTF-16 code units (surrogate pairs past the BMP) of a UTF-8 text, repaired as decodeUtf8 does.
std::u16string utf8ToUtf16(std::string_view utf8);

// Valid UTF-8 for any byte string: decodeUtf8 then encodeUtf8.
std::string repairUtf8(std::string_view bytes);
// ISO 8859-1 bytes as UTF-8 (each byte is the code point of the same value).
std::string latin1ToUtf8(std::string_view bytes);

// C0 controls (U+0000 to U+001F), DEL (U+007F) and C1 controls (U+0080 to U+009F).
bool isControlCharacter(char32_t c);

// The one sanitising step for every name from every source: valid UTF-8
// (repaired as decodeUtf8 does) without any control character, so that no
// name can move a terminal's cursor, change its colours or title, or break
// a line of `plenavue list`.
std::string sanitizedText(std::string_view bytes);

// Number of code points of a valid UTF-8 text.
size_t codePointCount(std::string_view utf8);
// The first maxCodePoints code points of a valid UTF-8 text, cut on a character boundary.
std::string firstCodePoints(std::string_view utf8, size_t maxCodePoints);

}  // namespace pv
