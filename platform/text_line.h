#pragma once
// Texts printed as one line of a terminal or a log, whatever they hold.

#include <string>
#include <string_view>

namespace pv {

// The text with every control character written as an escape (\n, \r, \t,
// \xHH) and every backslash doubled, so that a name holding a newline cannot
// split the line it is printed on. Other bytes, UTF-8 included, stay as they are.
std::string oneLine(std::string_view text);

}  // namespace pv
