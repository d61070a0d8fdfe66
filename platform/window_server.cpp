#include "platform/window_server.h"

namespace pv {

std::vector<uint32_t> displaysMeetingRect(const std::vector<ScreenListEntry>& screens, const Rect& bounds,
                                          uint32_t maxCount) {
    std::vector<uint32_t> ids;
    if (screens.empty()) return ids;
    const double mainHeight = screens.front().frame.height;
    for (const auto& s : screens) {
        if (ids.size() >= maxCount) break;
        const Rect flipped{s.frame.x, mainHeight - s.frame.y - s.frame.height, s.frame.width, s.frame.height};
        if (flipped.intersects(bounds)) ids.push_back(s.displayId);
    }
    return ids;
}

}  // namespace pv
