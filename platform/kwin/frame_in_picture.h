#pragma once
// Where a window's frame lies inside KWin's picture of it. KWin 5.27 gives a
// window with server-side decorations together with the decoration's shadow,
// whatever include-shadow says, and that shadow is not the same on every side
// (Breeze: 65 left and right, 53 above, 77 below, times the scale); a window
// that decorates itself comes as its whole buffer, its own shadow included.

#include <optional>

#include "platform/coordinates.h"
#include "platform/image.h"

namespace pv::kwin {

// In the picture's pixels, for a picture at `scale` of a window with that
// frame and buffer (points):
//  1. the picture is the frame's size: all of it;
//  2. it is the buffer's size and the buffer holds the frame (client-side
//     decorations): the frame at its offset in the buffer;
//  3. otherwise (a decoration's shadow around the frame): the frame's size at
//     the left-most column and top-most row holding a fully opaque pixel, the
//     edges of the decoration.
// nullopt when the frame does not fit inside the picture.
std::optional<CanvasRect> frameInPicture(const Image& picture, double scale, const Rect& frame, const Rect& buffer);

// The part of the picture inside the rectangle (its pixels), transparent where
// the rectangle reaches past the picture.
Image cutOut(const Image& picture, const CanvasRect& part);

}  // namespace pv::kwin
