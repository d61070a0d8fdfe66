#include "capture/selection_geometry.h"

namespace pv {

CanvasRect selectionDestination(const WindowRect& bounds, float shadowX, float shadowY, const PixelRect& R, float S,
                                float M) {
    PixelRect r = toPixels(toScreenSpace(bounds, M), S);
    r.x -= shadowX;
    r.y += shadowY;  // bottom-up: up is +y
    return onCanvas(r, R);
}

}  // namespace pv
