#include "capture/selection_geometry.h"

namespace pv {

Rect selectionDestination(const PVWindowElement& window, const Rect& R, float S, float M) {
    const Rect& D = window.dimensions;
    const double s = S;
    const float MS = M * S;  // formed in single precision
    const double left = s * D.x - R.x - window.shadowX;
    const double bottom = static_cast<double>(MS) - R.y - (s * D.y - window.shadowY) - s * D.height;
    return {left, bottom, s * D.width, s * D.height};
}

Rect flipToTopDown(const Rect& r, double canvasHeight) {
    return {r.x, canvasHeight - r.y - r.height, r.width, r.height};
}

}  // namespace pv
