#include "platform/x11/edid_name.h"

namespace pv::x11 {
namespace {

constexpr size_t kBaseBlockSize = 128;
constexpr size_t kDescriptorOffsets[] = {54, 72, 90, 108};
constexpr uint8_t kMonitorNameTag = 0xFC;
constexpr size_t kDescriptorTextOffset = 5;
constexpr size_t kDescriptorTextLength = 13;

}  // namespace

std::optional<std::string> edidMonitorName(const std::vector<uint8_t>& edid) {
    if (edid.size() < kBaseBlockSize) return std::nullopt;
    for (size_t offset : kDescriptorOffsets) {
        const uint8_t* d = edid.data() + offset;
        // Display descriptors start with a zero pixel clock (two zero bytes).
        if (d[0] != 0 || d[1] != 0 || d[3] != kMonitorNameTag) continue;
        std::string name;
        for (size_t i = 0; i < kDescriptorTextLength; ++i) {
            const char ch = static_cast<char>(d[kDescriptorTextOffset + i]);
            if (ch == '\n' || ch == '\0') break;
            name.push_back(ch);
        }
        while (!name.empty() && name.back() == ' ') name.pop_back();
        if (!name.empty()) return name;
    }
    return std::nullopt;
}

}  // namespace pv::x11
