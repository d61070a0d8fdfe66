#pragma once
// The arithmetic of the preview pane, without any drawing: how large the view
// makes itself for a picture at a scale, where the picture goes inside it, the
// checkerboard behind it, and the fit and zoom commands.
//
// Units: the view's units (top-down, y grows downward from the view's top
// edge) and picture units (pixels of the composite). `scale` is view units per
// picture unit. The visible area is the frame of the pane that holds the view
// (a scroll area's viewport); the content size is that pane's size without
// scroll bars or border.

#include <optional>

#include "platform/geometry.h"

namespace pv {

class RenderGeometry {
public:
    static constexpr double kMargin = 8.0;         // on every side of the picture
    static constexpr double kCheckerSquare = 8.0;  // side of one checkerboard square
    static constexpr double kZoomInStep = 1.1;
    static constexpr double kZoomOutStep = 0.9;

    // The squares of the checkerboard over a frame: rows x columns squares of
    // kCheckerSquare from the top-left corner; the last row and column may lie
    // partly or wholly outside the frame. Square (row i, column j) is grey when
    // i + j is odd, white otherwise.
    struct Checkerboard {
        int rows = 0;
        int columns = 0;
        static bool isGrey(int row, int column) { return (row + column) % 2 != 0; }
        static Rect square(int row, int column) {
            return {kCheckerSquare * column, kCheckerSquare * row, kCheckerSquare, kCheckerSquare};
        }
    };

    // What one drawing pass paints: the view's frame after sizing, the
    // checkerboard over it and, when there is a picture, where it is drawn.
    struct DrawPlan {
        Rect frame;
        Checkerboard checkerboard;
        std::optional<Rect> picture;
    };

    // The picture's size in picture units; 0 by 0 means no picture.
    void setImageSize(Size size) { imageSize_ = size; }
    Size imageSize() const { return imageSize_; }
    bool hasImage() const { return imageSize_.width > 0 && imageSize_.height > 0; }

    float scale() const { return scale_; }
    void setScale(float s) { scale_ = s; }

    // The view's frame in the pane's units; the bounds are always the frame's
    // size at the origin.
    const Rect& frame() const { return frame_; }
    void setFrame(const Rect& f) { frame_ = f; }

    // Left and top edge of the picture as last drawn (top is the margin once a
    // picture has been drawn).
    float pointerOffsetX() const { return pointerOffsetX_; }
    float pointerOffsetY() const { return pointerOffsetY_; }

    // One drawing pass in a visible area: with a picture, the frame is sized
    // for the scaled picture and the picture placed (centred horizontally when
    // narrower than the visible area, never nearer the left edge than the
    // margin, always the margin below the top); the pointer offsets follow.
    // Without a picture the frame and offsets stay as they are. Calling it again
    // with the same visible area gives the same plan.
    DrawPlan drawPass(const Rect& visible);

    static Checkerboard checkerboardFor(Size frameSize);

    // Fits take the content size of the visible area. The scale never exceeds
    // 1. Without a picture the scale becomes 1.
    void fitWidth(Size content);
    void fitAll(Size content);
    // Zooms multiply the scale by 1.1 or 0.9, without limits, and grow or
    // shrink the frame at once; zoomOut never shrinks the frame below the
    // visible area.
    void zoomIn();
    void zoomOut(const Rect& visible);

private:
    // The scale a fit computes from an available length and the picture's
    // length on the same axis.
    void applyFitScale(double available, double pictureLength);

    Size imageSize_;
    float scale_ = 1.0f;
    Rect frame_;
    float pointerOffsetX_ = 0;
    float pointerOffsetY_ = 0;
};

}  // namespace pv
