#include "platform/geometry.h"

#include <fmt/format.h>

namespace pv {

std::string rectToString(const Rect& r) {
    return fmt::format("{{{{{}, {}}}, {{{}, {}}}}}", r.x, r.y, r.width, r.height);
}

}  // namespace pv
