// Our captures side by side with other tools doing the same job, interleaved
// round by round so that a busy machine slows both alike:
// - fixture: `plenavue capture` of a fixture desktop of 8 layers of 1920x1080
//   over a 3840x2160 composite into a grouped PSD, vs ImageMagick's convert
//   reading the same PNGs and writing a layered PSD;
// - x11: on a private 3840x2160 Xvfb with openbox and 10 windows, our grouped
//   PSD capture and our PNG capture vs scrot writing a PNG of the screen;
// - pictures: the window pictures through the X11 window server (a fresh
//   connection each round, as a capture makes one) vs raw MIT-SHM reads of the
//   same windows on a fresh connection.
// Prints each ratio's min/median/max over the rounds.
//
// usage: bench_versus [rounds] [--fixture-only]   (rounds: at least 5)
// --fixture-only keeps the fixture desktop and its files and skips the X11 part.
#include <fcntl.h>
#include <spawn.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "capture/window_shot.h"
#include "platform/png_io.h"
#include "platform/x11/x11_window_server.h"
// The test fixture's private X server, compiled into this program.
#include "tests/x11/xvfb_session.cpp"

extern char** environ;

using namespace pv;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

namespace {

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Runs a program to its end with extra environment entries; its wall time in
// ms, or -1 when it failed.
double timedRun(const std::vector<std::string>& argv, const std::vector<std::string>& env = {}) {
    std::vector<std::string> envStrings;
    for (char** e = environ; *e; ++e) {
        const std::string entry = *e;
        const bool replaced = std::any_of(env.begin(), env.end(), [&](const std::string& x) {
            return entry.compare(0, x.find('=') + 1, x, 0, x.find('=') + 1) == 0;
        });
        if (!replaced) envStrings.push_back(entry);
    }
    envStrings.insert(envStrings.end(), env.begin(), env.end());
    std::vector<char*> args, envp;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    for (const auto& e : envStrings) envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);
    const auto start = Clock::now();
    // Standard output (the written path) is dropped; errors still show.
    posix_spawn_file_actions_t quiet;
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, args[0], &quiet, nullptr, args.data(), envp.data());
    posix_spawn_file_actions_destroy(&quiet);
    if (spawned != 0) return -1;
    int status = 0;
    waitpid(pid, &status, 0);
    const double ms = msSince(start);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "%s failed (status %d)\n", argv[0].c_str(), status);
        return -1;
    }
    return ms;
}

double megabytes(uintmax_t bytes) { return static_cast<double>(bytes) / 1e6; }

struct Ratio {
    std::string name;
    std::vector<double> values;
    void print() const {
        if (values.empty()) return;
        auto v = values;
        std::sort(v.begin(), v.end());
        std::printf("  %-44s min %.2f  median %.2f  max %.2f  (%zu rounds)\n", name.c_str(), v.front(), v[v.size() / 2],
                    v.back(), v.size());
    }
};

// A window-like picture: title bar, side bar with text, a gradient pane, a
// noisy pane and text lines on white; opaque.
Image windowPicture(int w, int h, uint32_t seed) {
    Image img(w, h);
    std::mt19937 rng(seed);
    for (int y = 0; y < h; ++y) {
        uint8_t* p = img.row(y);
        for (int x = 0; x < w; ++x, p += 4) {
            uint8_t r, g, b;
            if (y < 40) {
                r = g = b = static_cast<uint8_t>(200 + seed * 5);
            } else if (x < 240) {
                r = 245, g = 246, b = 248;
                if (y % 24 < 12 && x > 20 && x < 200 && (x / 7) % 3 != 0) r = g = b = 40;
            } else if (x < w / 2) {
                r = static_cast<uint8_t>(x * 255 / w), g = static_cast<uint8_t>(y * 255 / h), b = 180;
            } else if (y < h / 4) {
                const auto n = static_cast<uint32_t>(rng());
                r = static_cast<uint8_t>(n), g = static_cast<uint8_t>(n >> 8), b = static_cast<uint8_t>(n >> 16);
            } else {
                r = g = b = 255;
                if (y % 20 < 10 && (x / 5) % 4 != 0) r = g = b = 20;
            }
            p[0] = r, p[1] = g, p[2] = b, p[3] = 255;
        }
    }
    return img;
}

bool writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

// The fixture desktop: 8 window PNGs and the composite PNG, the JSON naming
// them, and the convert command line that builds the same layered PSD.
bool makeFixture(const fs::path& dir, std::vector<std::string>& convertArgs) {
    constexpr int kW = 1920, kH = 1080;
    Image desktop = Image::filled(3840, 2160, 30, 60, 90, 255);
    std::string windows;
    std::vector<std::string> layerArgs;
    for (int i = 0; i < 8; ++i) {
        const int x = (i % 4) * 600, y = (i / 4) * 1000 + (i % 4) * 20;
        Image picture = windowPicture(kW, kH, static_cast<uint32_t>(i + 1));
        drawOver(desktop, picture, x, y);
        const std::string name = "window" + std::to_string(i) + ".png";
        if (!writeFile((dir / name).string(), encodePNG(picture))) return false;
        windows += (i ? ",\n" : "") + std::string("    {\"number\": ") + std::to_string(100 + i) +
                   ", \"ownerName\": \"App " + std::to_string(i % 3) +
                   "\", \"ownerPID\": " + std::to_string(1000 + i % 3) + ", \"title\": \"Window " + std::to_string(i) +
                   "\", \"bounds\": [" + std::to_string(x) + ", " + std::to_string(y) + ", " + std::to_string(kW) +
                   ", " + std::to_string(kH) + "], \"picture\": {\"png\": \"" + name + "\"}}";
        // convert's layers are given bottom first; the fixture lists frontmost first.
        layerArgs.insert(layerArgs.begin(),
                         {"-page", "+" + std::to_string(x) + "+" + std::to_string(y), (dir / name).string()});
    }
    if (!writeFile((dir / "desktop.png").string(), encodePNG(desktop))) return false;
    std::ofstream json(dir / "desktop.json");
    json << "{\n  \"hostName\": \"bench\",\n  \"screens\": [{\"displayId\": 1, \"frame\": [0, 0, 3840, 2160], "
            "\"backingScaleFactor\": 1.0}],\n  \"windows\": [\n"
         << windows << "\n  ],\n  \"desktop\": {\"png\": \"desktop.png\"}\n}\n";
    convertArgs = {"/usr/bin/convert", (dir / "desktop.png").string()};
    convertArgs.insert(convertArgs.end(), layerArgs.begin(), layerArgs.end());
    convertArgs.push_back((dir / "magick.psd").string());
    return static_cast<bool>(json);
}

// Ten windows of three programs, large and overlapping, as on a busy 4K desktop.
void startClients(test::XvfbSession& session) {
    session.start({"xlogo", "-geometry", "1600x1000+40+60"});
    session.start({"xlogo", "-geometry", "1200x900+1400+200"});
    session.start({"xlogo", "-geometry", "900x600+2800+1400"});
    session.start({"xclock", "-geometry", "900x900+2700+100", "-update", "1"});
    session.start({"xclock", "-geometry", "700x700+300+1300"});
    session.start({"xclock", "-geometry", "500x500+1700+1500"});
    session.start({"xterm", "-geometry", "200x50+100+700", "-title", "terminal 1"});
    session.start({"xterm", "-geometry", "160x40+2000+900", "-title", "terminal 2"});
    session.start({"xterm", "-geometry", "120x30+600+200", "-title", "terminal 3"});
    session.start({"xterm", "-geometry", "100x60+3000+700", "-title", "terminal 4"});
}

// Raw MIT-SHM reads of the given windows on a fresh connection: one segment as
// large as the largest, one GetImage per window. Bytes read, or 0 on failure.
size_t rawSharedReads(const std::string& display, const std::vector<uint32_t>& windows) {
    xcb_connection_t* c = xcb_connect(display.c_str(), nullptr);
    if (xcb_connection_has_error(c)) return 0;
    struct Geometry {
        uint32_t window;
        uint16_t w, h;
    };
    std::vector<Geometry> geometries;
    size_t largest = 0;
    for (uint32_t w : windows) {
        auto* g = xcb_get_geometry_reply(c, xcb_get_geometry(c, w), nullptr);
        if (!g) continue;
        geometries.push_back({w, g->width, g->height});
        largest = std::max(largest, size_t{g->width} * g->height * 4);
        std::free(g);
    }
    const int id = shmget(IPC_PRIVATE, largest, IPC_CREAT | 0600);
    void* memory = shmat(id, nullptr, 0);
    const uint32_t segment = xcb_generate_id(c);
    xcb_shm_attach(c, segment, static_cast<uint32_t>(id), 0);
    size_t bytes = 0;
    for (const Geometry& g : geometries) {
        auto* reply = xcb_shm_get_image_reply(
            c, xcb_shm_get_image(c, g.window, 0, 0, g.w, g.h, ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, segment, 0), nullptr);
        if (reply) bytes += reply->size;
        std::free(reply);
    }
    xcb_shm_detach(c, segment);
    xcb_disconnect(c);
    shmdt(memory);
    shmctl(id, IPC_RMID, nullptr);
    return bytes;
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = std::max(5, argc > 1 ? std::atoi(argv[1]) : 7);
    const std::string plenavue = (fs::path(argv[0]).parent_path().parent_path() / "plenavue").string();
    if (!fs::exists(plenavue) || !fs::exists("/usr/bin/convert") || !fs::exists("/usr/bin/scrot")) {
        std::fprintf(stderr, "needs %s, /usr/bin/convert and /usr/bin/scrot (scripts/install-deps.sh)\n",
                     plenavue.c_str());
        return 1;
    }
    const fs::path dir = fs::temp_directory_path() / ("pv-bench-versus-" + std::to_string(getpid()));
    fs::create_directories(dir / "home");
    // Our program reads no stored settings of the developer.
    const std::vector<std::string> ourEnv = {"HOME=" + (dir / "home").string(),
                                             "XDG_CONFIG_HOME=" + (dir / "home").string()};
    std::printf("bench_versus: %d rounds, %u hardware threads (the machine may be shared: compare ratios)\n", rounds,
                std::thread::hardware_concurrency());

    // ---- fixture desktop vs ImageMagick
    std::vector<std::string> convertArgs;
    if (!makeFixture(dir, convertArgs)) return 1;
    const std::vector<std::string> ourFixture = {plenavue,    "capture",
                                                 "-q",        "--no-shadow",
                                                 "--format",  "grouped",
                                                 "--desktop", (dir / "desktop.json").string(),
                                                 "--file",    (dir / "ours.psd").string()};
    Ratio fixtureRatio{"fixture capture / ImageMagick layered PSD", {}};
    for (int r = 0; r < rounds; ++r) {
        const double ours = timedRun(ourFixture, ourEnv);
        const double magick = timedRun(convertArgs);
        if (ours < 0 || magick < 0) return 1;
        std::printf("fixture round %d: ours %.0f ms (%.1f MB), convert %.0f ms (%.1f MB)\n", r + 1, ours,
                    megabytes(fs::file_size(dir / "ours.psd")), magick, megabytes(fs::file_size(dir / "magick.psd")));
        fixtureRatio.values.push_back(ours / magick);
        std::fflush(stdout);
    }

    if (argc > 2 && std::string(argv[2]) == "--fixture-only") {
        fixtureRatio.print();
        std::printf("kept %s\n", dir.c_str());
        return 0;
    }

    // ---- X11 desktop vs scrot, and window pictures vs raw reads
    test::XvfbSession session(test::XvfbOptions{3840, 2160, true, {}});
    startClients(session);
    std::string error;
    auto probe = X11WindowServer::connect(session.display(), &error);
    if (!probe) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    if (!test::XvfbSession::waitFor([&] { return probe->windowList().size() >= 10; })) {
        std::fprintf(stderr, "the 10 client windows did not appear\n");
        return 1;
    }
    std::vector<uint32_t> frames;
    for (const WindowListEntry& e : probe->windowList()) frames.push_back(e.number);
    probe.reset();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // first frames drawn

    const std::vector<std::string> xEnv = {"DISPLAY=" + session.display(), "HOME=" + (dir / "home").string(),
                                           "XDG_CONFIG_HOME=" + (dir / "home").string()};
    const auto ourX11 = [&](const std::string& format, const std::string& file) {
        return std::vector<std::string>{plenavue,   "capture", "-q",     "--no-shadow",
                                        "--format", format,    "--file", (dir / file).string()};
    };
    const std::vector<std::string> scrot = {"/usr/bin/scrot", "-o", (dir / "scrot.png").string()};
    Ratio psdRatio{"x11 grouped PSD / scrot PNG", {}}, pngRatio{"x11 PNG / scrot PNG", {}},
        sizeRatio{"x11 PNG size / scrot PNG size", {}}, pictureRatio{"window pictures / raw SHM reads", {}};
    for (int r = 0; r < rounds; ++r) {
        const double psd = timedRun(ourX11("grouped", "x11.psd"), xEnv);
        const double flat = timedRun(scrot, xEnv);
        const double png = timedRun(ourX11("png", "x11.png"), xEnv);
        if (psd < 0 || flat < 0 || png < 0) return 1;
        const double ourSize = megabytes(fs::file_size(dir / "x11.png")),
                     theirSize = megabytes(fs::file_size(dir / "scrot.png"));
        std::printf("x11 round %d: grouped PSD %.0f ms (%.1f MB), PNG %.0f ms (%.2f MB), scrot %.0f ms (%.2f MB)\n",
                    r + 1, psd, megabytes(fs::file_size(dir / "x11.psd")), png, ourSize, flat, theirSize);
        psdRatio.values.push_back(psd / flat);
        pngRatio.values.push_back(png / flat);
        sizeRatio.values.push_back(ourSize / theirSize);

        // Our pictures of every listed window through a fresh window server,
        // then the raw reads of the same windows.
        auto start = Clock::now();
        auto server = X11WindowServer::connect(session.display(), &error);
        if (!server) return 1;
        std::vector<PictureRequest> requests;
        for (uint32_t w : frames) {
            PictureRequest q;
            q.window = w;
            requests.push_back(q);
        }
        const auto results = server->takePictures(requests, kPictureDeadline);
        server.reset();
        const double ours = msSince(start);
        size_t ourBytes = 0;
        for (const auto& p : results)
            if (p.picture) ourBytes += p.picture->image.byteCount();
        start = Clock::now();
        const size_t rawBytes = rawSharedReads(session.display(), frames);
        const double raw = msSince(start);
        if (rawBytes == 0) return 1;
        std::printf("pictures round %d: ours %.1f ms (%.1f MB), raw SHM %.1f ms (%.1f MB)\n", r + 1, ours,
                    megabytes(ourBytes), raw, megabytes(rawBytes));
        pictureRatio.values.push_back(ours / raw);
        std::fflush(stdout);
    }

    std::printf("ratios (lower is faster for us):\n");
    for (const Ratio* ratio : {&fixtureRatio, &psdRatio, &pngRatio, &sizeRatio, &pictureRatio}) ratio->print();
    fs::remove_all(dir);
    return 0;
}
