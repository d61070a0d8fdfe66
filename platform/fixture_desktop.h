#pragma once
// A desktop described in a JSON file (docs/fixture-desktop.md): screens,
// windows with their pictures, and the desktop picture. Lets the whole
// pipeline run without an X server, deterministically.

#include <memory>
#include <stdexcept>
#include <string>

#include "platform/window_server.h"

namespace pv {

// Bad fixture input: the message names the file, the key and the problem.
struct FixtureError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Largest coordinate or size a fixture may give, in points (the range of a
// 32-bit integer), and its largest backing scale.
constexpr double kMaxCoordinate = 2147483648.0;
constexpr double kMaxBackingScale = 32;
// Pictures a fixture may make or read: every side within kMaxPictureSide, and
// at most this many pixels.
constexpr uint64_t kMaxFixturePicturePixels = uint64_t{30000} * 30000;

class FixtureDesktop : public WindowServer {
public:
    // Reads and checks the whole file; throws FixtureError, and std::bad_alloc
    // when memory runs out while its pictures are made.
    static std::unique_ptr<FixtureDesktop> load(const std::string& path,
                                                uint64_t maxPicturePixels = kMaxFixturePicturePixels);
    ~FixtureDesktop() override;

    std::string hostName() override;
    std::vector<ScreenListEntry> screenList() override;
    std::optional<std::string> productName(uint32_t displayId) override;
    std::vector<WindowListEntry> windowList() override;
    std::optional<std::vector<uint32_t>> displaysOfRect(const WindowRect& bounds, uint32_t maxCount) override;
    // Safe to call from several threads at once.
    std::optional<Image> windowPicture(const std::optional<WindowRect>& bounds, uint32_t windowNumber,
                                       bool framing) override;
    std::optional<Image> desktopPicture() override;
    std::string backendName() const override { return "fixture"; }

    struct Data;

private:
    explicit FixtureDesktop(std::unique_ptr<Data> data);
    std::unique_ptr<Data> data_;
};

}  // namespace pv
