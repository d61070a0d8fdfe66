#pragma once
// A window server whose screens, windows and pictures a test sets directly.

#include <functional>
#include <map>

#include "platform/window_server.h"

namespace pv::test {

class FakeWindowServer : public WindowServer {
public:
    std::string host = "studio";
    std::vector<ScreenListEntry> screens;
    std::map<uint32_t, std::string> productNames;
    std::vector<WindowListEntry> windows;
    std::map<uint32_t, Image> pictures;  // by window number
    bool failDisplayLookup = false;
    std::function<void(uint32_t)> beforePicture;  // acts first: cancels a batch, throws

    // What the last windowPicture call asked for.
    struct PictureRequest {
        std::optional<WindowRect> bounds;
        uint32_t number = 0;
        bool framing = false;
    };
    std::vector<PictureRequest> requests;

    std::string hostName() override { return host; }
    std::vector<ScreenListEntry> screenList() override { return screens; }
    std::optional<std::string> productName(uint32_t id) override {
        auto it = productNames.find(id);
        if (it == productNames.end()) return std::nullopt;
        return it->second;
    }
    std::vector<WindowListEntry> windowList() override { return windows; }
    std::optional<std::vector<uint32_t>> displaysOfRect(const WindowRect& bounds, uint32_t maxCount) override {
        if (failDisplayLookup) return std::nullopt;
        return displaysMeetingRect(screens, bounds, maxCount);
    }
    std::optional<Image> windowPicture(const std::optional<WindowRect>& bounds, uint32_t number,
                                       bool framing) override {
        if (beforePicture) beforePicture(number);
        requests.push_back({bounds, number, framing});
        auto it = pictures.find(number);
        if (it == pictures.end()) return std::nullopt;
        return it->second;
    }
    std::optional<Image> desktopPicture() override { return std::nullopt; }

    WindowListEntry& addWindow(uint32_t number, const char* owner, int32_t pid, const char* title, WindowRect bounds,
                               int32_t layer = 0) {
        WindowListEntry e;
        e.sharingState = 1;
        e.ownerName = owner ? std::optional<std::string>(owner) : std::nullopt;
        e.title = title ? std::optional<std::string>(title) : std::nullopt;
        e.number = number;
        e.layer = layer;
        e.bounds = bounds;
        e.ownerPID = pid;
        windows.push_back(e);
        return windows.back();
    }
};

}  // namespace pv::test
