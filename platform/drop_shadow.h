#pragma once
// The drop shadow that window servers without their own add around a window's
// picture when framing is wanted: as wide on the left as on the right, twice as
// deep below as above, soft and semi-transparent black.

#include "platform/image.h"

namespace pv {

struct ShadowMargins {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
};

// Margins in pixels at a backing scale: 24 points on each side, 16 above, 32 below.
ShadowMargins dropShadowMargins(double scale);

// The window's picture on a larger transparent canvas with the shadow behind it.
Image addDropShadow(const Image& window, double scale);

}  // namespace pv
