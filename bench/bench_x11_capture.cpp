// Capturing a 3840x2160 X desktop with 8 real client windows into a grouped
// PSD: how long taking the pictures, preparing the layers and writing the
// file take, and how long the whole capture command takes through the
// controller (inventory, shots, parallel preparation, writer). Runs on a
// private Xvfb with openbox that it starts and stops.
//
// usage: bench_x11_capture [runs] [folder] [--keep]
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <QCoreApplication>
#include <QElapsedTimer>

#include "app/app_delegate.h"
#include "cli/headless_view.h"
#include "document/layer_element.h"
#include "document/layer_preparation.h"
#include "document/psd_writer.h"
#include "platform/x11/x11_window_server.h"
// The test fixture's private X server, compiled into this program.
#include "tests/x11/xvfb_session.cpp"

using namespace pv;
using Clock = std::chrono::steady_clock;

namespace {

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

struct WindowPictureOf {
    WindowListEntry entry;
    Image picture;
};

// Eight windows of four programs, large and overlapping, as on a busy 4K desktop.
void startClients(test::XvfbSession& session) {
    session.start({"xlogo", "-geometry", "1600x1000+40+60"});
    session.start({"xlogo", "-geometry", "1200x900+1400+200"});
    session.start({"xclock", "-geometry", "900x900+2700+100", "-update", "1"});
    session.start({"xclock", "-geometry", "700x700+300+1300"});
    session.start({"xeyes", "-geometry", "1100x700+1200+1200"});
    session.start({"xeyes", "-geometry", "800x500+2900+1500"});
    session.start({"xterm", "-geometry", "200x50+100+700", "-title", "terminal 1"});
    session.start({"xterm", "-geometry", "160x40+2000+900", "-title", "terminal 2"});
}

std::vector<WindowPictureOf> takePictures(X11WindowServer& server) {
    std::vector<WindowPictureOf> shots;
    for (const WindowListEntry& e : server.windowList())
        if (auto picture = server.windowPicture(std::nullopt, e.number, false))
            shots.push_back({e, std::move(*picture)});
    return shots;
}

// Top of the stack first, one group per owner in the order their frontmost windows stand.
std::vector<LayerPtr> groupedLayers(const std::vector<WindowPictureOf>& shots) {
    std::vector<std::string> owners;
    std::map<std::string, std::vector<const WindowPictureOf*>> byOwner;
    for (const WindowPictureOf& s : shots) {
        const std::string owner = s.entry.ownerName.value_or("<no owner>");
        if (!byOwner.count(owner)) owners.push_back(owner);
        byOwner[owner].push_back(&s);
    }
    std::vector<LayerPtr> layers;
    for (const std::string& owner : owners) {
        layers.push_back(makeGroupMarker(LayerTypeGroupEnd, owner));
        for (const WindowPictureOf* s : byOwner[owner]) {
            auto l = std::make_shared<LayerElement>();
            l->name = s->entry.title.value_or("<no title>");
            l->location = {s->entry.bounds.x, s->entry.bounds.y, double(s->picture.width), double(s->picture.height)};
            l->imageData.assign(s->picture.pixels.begin(), s->picture.pixels.end());
            layers.push_back(l);
        }
        layers.push_back(makeGroupMarker(LayerTypeGroupStart, owner));
    }
    return layers;
}

// The capture command as the hot key runs it: refresh, desktop picture, every
// window's shot, layers prepared in parallel, the writer; until the file is done.
double captureThroughController(X11WindowServer& server, const std::string& folder, bool shadow) {
    std::unique_ptr<AppDelegate> delegate;
    HeadlessView view([&delegate] { return delegate ? delegate->root() : nullptr; });
    view.verbose = false;
    delegate = std::make_unique<AppDelegate>(server, view);
    delegate->settings.outputFormat = OutputFormat::GroupedPSD;
    delegate->settings.shadow = shadow;
    delegate->settings.outputFolder = folder;
    const auto start = Clock::now();
    delegate->capture();
    QElapsedTimer limit;
    limit.start();
    while (!view.outcome && limit.elapsed() < 120000) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    const double ms = msSince(start);
    if (!view.outcome || !view.outcome->ok) {
        std::fprintf(stderr, "controller capture failed: %s\n",
                     view.outcome ? view.outcome->reason.c_str() : "timeout");
        return -1;
    }
    std::filesystem::remove(view.outcome->path);
    return ms;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    int runs = 3;
    std::string folder = std::filesystem::temp_directory_path().string();
    bool keep = false;
    for (int i = 1, positional = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--keep") == 0)
            keep = true;
        else if (positional++ == 0)
            runs = std::max(1, std::atoi(argv[i]));
        else
            folder = argv[i];
    }
    std::ifstream in(std::string(PV_SOURCE_DIR) + "/resources/xmp.dat", std::ios::binary);
    const std::string xmpTemplate{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    const std::string path = folder + "/bench_x11_capture.psd";

    test::XvfbSession session(test::XvfbOptions{3840, 2160, true, {}});
    startClients(session);
    std::string error;
    auto server = X11WindowServer::connect(session.display(), &error);
    if (!server) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    if (!test::XvfbSession::waitFor([&] { return server->windowList().size() >= 8; })) {
        std::fprintf(stderr, "the 8 client windows did not appear\n");
        return 1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // first frames drawn
    std::printf("x11 capture: 3840x2160 Xvfb, openbox, %zu windows; %u hardware threads\n", server->windowList().size(),
                std::thread::hardware_concurrency());

    for (int run = 1; run <= runs; ++run) {
        for (bool shared : {true, false}) {
            server->setSharedMemory(shared);
            auto start = Clock::now();
            std::vector<WindowPictureOf> shots = takePictures(*server);
            auto desktop = server->desktopPicture();
            const double pictureMs = msSince(start);
            if (!desktop) {
                std::fprintf(stderr, "no desktop picture\n");
                return 1;
            }
            double pixelsMB = double(desktop->byteCount()) / 1e6;
            for (const WindowPictureOf& s : shots) pixelsMB += double(s.picture.byteCount()) / 1e6;

            std::vector<LayerPtr> layers = groupedLayers(shots);
            start = Clock::now();
            std::vector<std::thread> tasks;
            for (auto& l : layers)
                if (!l->ready) tasks.emplace_back([l] { prepareLayer(*l); });
            for (auto& t : tasks) t.join();
            const double prepareMs = msSince(start);

            start = Clock::now();
            const WriteResult written =
                writePSD(path, {double(desktop->width), double(desktop->height)},
                         {desktop->pixels.begin(), desktop->pixels.end()}, layers, xmpTemplate, nullptr);
            const double writeMs = msSince(start);
            if (!written.ok) {
                std::fprintf(stderr, "%s\n", written.error.c_str());
                return 1;
            }
            std::printf(
                "run %d (%s): pictures %.1f ms (%zu windows + desktop, %.1f MB), prepare %.1f ms, "
                "write %.1f ms, total %.1f ms; file %.1f MB\n",
                run, shared ? "MIT-SHM" : "GetImage", pictureMs, shots.size(), pixelsMB, prepareMs, writeMs,
                pictureMs + prepareMs + writeMs, double(std::filesystem::file_size(path)) / 1e6);
        }
    }
    for (int run = 1; run <= runs; ++run) {
        for (bool shadow : {false, true}) {
            const double ms = captureThroughController(*server, folder, shadow);
            if (ms < 0) return 1;
            std::printf("run %d (controller, %s): capture command to a complete grouped PSD %.1f ms\n", run,
                        shadow ? "with shadows" : "no shadows", ms);
        }
    }
    if (keep)
        std::printf("kept %s\n", path.c_str());
    else
        std::filesystem::remove(path);
    return 0;
}
