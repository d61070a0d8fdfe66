#include "capture/window_shot.h"

#include <algorithm>
#include <cmath>
#include <memory>

namespace pv {

PictureRequest shotRequest(const PVWindowElement& node, bool shadowSetting) {
    PictureRequest r;
    r.window = node.eidi;
    r.framing = shadowSetting && !node.isSystemWindow;
    // System windows are taken by their bounds; others by their own extent.
    if (node.isSystemWindow) r.bounds = node.windowBounds();
    r.listedBounds = node.windowBounds();
    r.scale = node.scaling > 0 ? node.scaling : 1.0;
    return r;
}

std::optional<Shot> shotOf(const PVWindowElement& node, WindowPicture picture, bool withShadow) {
    // A picture at another scale than the node's (a compositor's picture of a
    // window across screens of different scales) is brought to the node's.
    const double target = node.scaling > 0 ? node.scaling : picture.scale;
    if (picture.scale > 0 && std::fabs(target - picture.scale) > 1e-6) {
        const double f = target / picture.scale;
        picture.image = resampled(picture.image, static_cast<int>(std::lround(picture.image.width * f)),
                                  static_cast<int>(std::lround(picture.image.height * f)));
        picture.frame = {picture.frame.x * f, picture.frame.y * f, picture.frame.width * f, picture.frame.height * f};
        picture.scale = target;
    }
    if (picture.image.width <= 1 || picture.image.height <= 1) return std::nullopt;
    Shot shot;
    shot.withShadow = withShadow;
    if (withShadow) {
        shot.shadowX = static_cast<float>(picture.frame.x / picture.scale);
        shot.shadowY = static_cast<float>(picture.frame.y / picture.scale);
    }
    shot.picture = std::make_shared<const Image>(std::move(picture.image));
    return shot;
}

std::vector<std::optional<Shot>> takeShots(const std::vector<const PVWindowElement*>& nodes, WindowServer& server,
                                           bool shadowSetting, const std::atomic<bool>* stop) {
    std::vector<PictureRequest> requests;
    for (const PVWindowElement* node : nodes) requests.push_back(shotRequest(*node, shadowSetting));
    auto results = server.takePictures(requests, kPictureDeadline, stop);
    throwIfServerLost(results);
    std::vector<std::optional<Shot>> shots(nodes.size());
    for (size_t i = 0; i < nodes.size() && i < results.size(); ++i) {
        if (results[i].picture) shots[i] = shotOf(*nodes[i], std::move(*results[i].picture), requests[i].framing);
    }
    return shots;
}

std::optional<Shot> takeShot(const PVWindowElement& node, WindowServer& server, bool shadowSetting) {
    return takeShots({&node}, server, shadowSetting).front();
}

void storeShot(PVWindowElement& node, const Shot& shot) {
    node.shot = shot.picture;
    if (!shot.withShadow) return;
    node.shadowX = shot.shadowX;
    node.shadowY = shot.shadowY;
}

std::optional<Shot> heldShot(const PVWindowElement& node) {
    if (!node.shot) return std::nullopt;
    return Shot{node.shot, true, node.shadowX, node.shadowY};
}

void getShot(PVWindowElement& node, WindowServer& server, bool shadowSetting) {
    if (auto shot = takeShot(node, server, shadowSetting)) storeShot(node, *shot);
}

void takeMissingShots(const std::vector<PVWindowElement::Ptr>& windows, WindowServer& server, bool shadowSetting) {
    // A window on two screens is listed twice; it is asked for once.
    std::vector<const PVWindowElement*> missing;
    std::vector<PVWindowElement*> targets;
    for (const auto& w : windows) {
        if (w->shot || std::find(targets.begin(), targets.end(), w.get()) != targets.end()) continue;
        missing.push_back(w.get());
        targets.push_back(w.get());
    }
    if (missing.empty()) return;
    const auto shots = takeShots(missing, server, shadowSetting);
    for (size_t i = 0; i < targets.size(); ++i)
        if (shots[i] && !targets[i]->shot) storeShot(*targets[i], *shots[i]);
}
}  // namespace pv
