#include "platform/geometry.h"

#include <fmt/format.h>

namespace pv {

std::string rectToString(double x, double y, double width, double height) {
    return fmt::format("{{{{{}, {}}}, {{{}, {}}}}}", x, y, width, height);
}

}  // namespace pv
