#pragma once
// The product name a monitor states in its EDID block.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace pv::x11 {

// The text of the monitor-name descriptor (tag 0xFC) of the EDID base block,
// trimmed at its line feed and trailing spaces; nullopt when the block is
// short, has no such descriptor or the name is empty.
std::optional<std::string> edidMonitorName(const std::vector<uint8_t>& edid);

}  // namespace pv::x11
