#include "inventory/node_name.h"

#include "platform/unicode_text.h"

namespace pv {

std::string nodeName(std::string_view text, const std::string& fallback) {
    if (const size_t nul = text.find('\0'); nul != std::string_view::npos) text = text.substr(0, nul);
    std::string name = firstCodePoints(sanitizedText(text), kMaxNodeNameCharacters);
    return codePointCount(name) >= 2 ? name : fallback;
}

}  // namespace pv
