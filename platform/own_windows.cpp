#include "platform/own_windows.h"

#include <algorithm>
#include <cmath>

namespace pv {

void coverOwnWindows(WindowServer& server, WindowPicture& desktop, const std::vector<WindowListEntry>& windows) {
    std::vector<WindowRect> own;
    for (const auto& w : windows)
        if (w.sharingState == 0) own.push_back(w.bounds);
    if (own.empty()) return;

    // The others that meet one of ours, back to front, without shadows.
    std::vector<PictureRequest> behind;
    for (auto it = windows.rbegin(); it != windows.rend(); ++it) {
        if (it->sharingState == 0) continue;
        if (std::none_of(own.begin(), own.end(), [&](const WindowRect& r) { return r.intersects(it->bounds); }))
            continue;
        PictureRequest r;
        r.window = it->number;
        r.listedBounds = it->bounds;
        r.scale = desktop.scale;
        behind.push_back(r);
    }
    const auto pictures = server.takePictures(behind, std::chrono::milliseconds(5000));
    throwIfServerLost(pictures);
    const double s = desktop.scale;
    auto toPixels = [&](const WindowRect& r) {
        return PixelClip{int(std::lround((r.x - desktop.placement.x) * s)),
                         int(std::lround((r.y - desktop.placement.y) * s)), int(std::lround(r.width * s)),
                         int(std::lround(r.height * s))};
    };
    for (const WindowRect& area : own) {
        const PixelClip clip = toPixels(area);
        drawOver(desktop.image, Image::filled(clip.width, clip.height, 0, 0, 0, 255), clip.x, clip.y);
        for (size_t i = 0; i < behind.size(); ++i) {
            if (!pictures[i].picture || !behind[i].listedBounds.intersects(area)) continue;
            Image image = pictures[i].picture->image;
            const PixelClip at = toPixels(behind[i].listedBounds);
            if (image.width != at.width || image.height != at.height) image = resampled(image, at.width, at.height);
            drawOver(desktop.image, image, at.x, at.y, clip);
        }
    }
}

}  // namespace pv
