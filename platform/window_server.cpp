#include "platform/window_server.h"

namespace pv {

std::vector<uint32_t> displaysMeetingRect(const std::vector<ScreenListEntry>& screens, const WindowRect& bounds,
                                          uint32_t maxCount) {
    std::vector<uint32_t> ids;
    if (screens.empty()) return ids;
    const double mainHeight = screens.front().frame.height;
    for (const auto& s : screens) {
        if (ids.size() >= maxCount) break;
        if (toWindowSpace(s.frame, mainHeight).intersects(bounds)) ids.push_back(s.displayId);
    }
    return ids;
}

}  // namespace pv
