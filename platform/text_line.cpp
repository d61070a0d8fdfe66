#include "platform/text_line.h"

namespace pv {

std::string oneLine(std::string_view text) {
    static const char hex[] = "0123456789abcdef";
    std::string out;
    out.reserve(text.size());
    for (const char ch : text) {
        const auto byte = static_cast<unsigned char>(ch);
        switch (ch) {
        case '\\':
            out += "\\\\";
            continue;
        case '\n':
            out += "\\n";
            continue;
        case '\r':
            out += "\\r";
            continue;
        case '\t':
            out += "\\t";
            continue;
        default:
            break;
        }
        if (byte < 0x20 || byte == 0x7f) {
            out += "\\x";
            out += hex[byte >> 4];
            out += hex[byte & 0xf];
        } else {
            out += ch;
        }
    }
    return out;
}

}  // namespace pv
