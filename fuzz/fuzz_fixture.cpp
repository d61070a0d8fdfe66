// The fixture loader on any text: it refuses with a FixtureError, or gives a
// desktop whose screens, windows, pictures and inventory can all be asked for.
// Any other exception, and any sanitizer report, is a finding.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz/scratch_folder.h"
#include "inventory/inventory.h"
#include "inventory/inventory_format.h"
#include "platform/fixture_desktop.h"
#include "platform/png_io.h"

namespace {

// A folder of our own with a small picture that fixtures may name as "p.png".
const std::filesystem::path& folder() {
    static const pvfuzz::ScratchFolder scratch("pv-fuzz-fixture");
    static const bool picture = [] {
        const auto png = pv::encodePNG(pv::Image::filled(3, 2, 10, 20, 30, 128));
        std::ofstream(scratch.path() / "p.png", std::ios::binary)
            .write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
        return true;
    }();
    (void)picture;
    return scratch.path();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto path = folder() / "desktop.json";
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    std::unique_ptr<pv::FixtureDesktop> desktop;
    try {
        desktop = pv::FixtureDesktop::load(path.string(), uint64_t{1} << 20);
    } catch (const pv::FixtureError&) {
        return 0;
    }
    for (const auto& w : desktop->windowList()) {
        for (bool framing : {false, true}) desktop->windowPicture(std::nullopt, w.number, framing);
        desktop->displaysOfRect(w.bounds, 2);
    }
    desktop->desktopPicture();
    pv::Inventory inventory(*desktop);
    inventory.refreshScreenList();
    inventory.refreshWindows();
    pv::inventoryToText(*inventory.root);
    pv::inventoryToJson(*inventory.root);
    return 0;
}
