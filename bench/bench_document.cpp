// Preparation and writing of a layered document of eight 1920x1080 windows
// over a 3840x2160 composite, with content that is partly flat, partly
// gradient and partly noise, as screen captures are.
//
// usage: bench_document [runs] [folder] [--keep]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "document/layer_preparation.h"
#include "document/psd_writer.h"

using namespace pv;
using Clock = std::chrono::steady_clock;

namespace {

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// A window-like picture: flat title bar and side bar, a gradient pane, a
// noisy "photo" pane, text-like stripes, and a soft translucent border.
std::vector<uint8_t> windowPixels(int w, int h, uint32_t seed) {
    std::vector<uint8_t> px(static_cast<size_t>(w) * h * 4);
    std::mt19937 rng(seed);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            uint8_t r, g, b, a = 255;
            if (y < 40) {
                r = g = b = 236;  // title bar
            } else if (x < 240) {
                r = 245, g = 246, b = 248;                                                 // side bar
                if (y % 24 < 12 && x > 20 && x < 200 && (x / 7) % 3 != 0) r = g = b = 40;  // text
            } else if (x < w / 2) {
                r = static_cast<uint8_t>(x * 255 / w), g = static_cast<uint8_t>(y * 255 / h), b = 180;
            } else if (y < h / 2) {
                const auto n = static_cast<uint32_t>(rng());
                r = static_cast<uint8_t>(n), g = static_cast<uint8_t>(n >> 8), b = static_cast<uint8_t>(n >> 16);
            } else {
                r = g = b = 255;
                if (y % 20 < 10 && (x / 5) % 4 != 0) r = g = b = 20;  // text
            }
            const int edge = std::min(std::min(x, w - 1 - x), std::min(y, h - 1 - y));
            if (edge < 16) a = static_cast<uint8_t>(edge * 15);  // soft border
            uint8_t* p = &px[(static_cast<size_t>(y) * w + x) * 4];
            p[0] = static_cast<uint8_t>(r * a / 255);
            p[1] = static_cast<uint8_t>(g * a / 255);
            p[2] = static_cast<uint8_t>(b * a / 255);
            p[3] = a;
        }
    }
    return px;
}

}  // namespace

int main(int argc, char** argv) {
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

    const int layerW = 1920, layerH = 1080, layerCount = 8;
    const int canvasW = 3840, canvasH = 2160;
    std::ifstream in(std::string(PV_SOURCE_DIR) + "/resources/xmp.dat", std::ios::binary);
    const std::string xmpTemplate{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};

    std::vector<std::vector<uint8_t>> sources;
    for (int i = 0; i < layerCount; ++i) sources.push_back(windowPixels(layerW, layerH, 100 + i));
    const std::vector<uint8_t> compositeSource = windowPixels(canvasW, canvasH, 7);

    const double layerMB = double(layerCount) * layerW * layerH * 4 / 1e6;
    const double compositeMB = double(canvasW) * canvasH * 4 / 1e6;
    const std::string path = folder + "/bench_document.psd";
    std::printf("document: %d layers of %dx%d (%.1f MB of pixels), composite %dx%d (%.1f MB); %u hardware threads\n",
                layerCount, layerW, layerH, layerMB, canvasW, canvasH, compositeMB,
                std::thread::hardware_concurrency());

    for (int run = 1; run <= runs; ++run) {
        std::vector<LayerPtr> layers;
        for (int i = 0; i < layerCount; ++i) {
            auto l = std::make_shared<LayerElement>();
            l->name = "Window " + std::to_string(i + 1);
            l->location = {double(i % 2) * 1920, double(i / 2 % 2) * 1080, double(layerW), double(layerH)};
            l->imageData = sources[i];
            layers.push_back(l);
        }
        std::vector<uint8_t> merged = compositeSource;

        // One task per layer, as the capture pipeline dispatches them.
        auto start = Clock::now();
        std::vector<std::thread> tasks;
        for (auto& l : layers) tasks.emplace_back([l] { prepareLayer(*l); });
        for (auto& t : tasks) t.join();
        const double prepMs = msSince(start);

        size_t channelBytes = 0;
        for (auto& l : layers) channelBytes += l->imageData.size();

        start = Clock::now();
        const WriteResult r = writePSD(path, {double(canvasW), double(canvasH)}, merged, layers, xmpTemplate, nullptr);
        const double writeMs = msSince(start);
        if (!r.ok) {
            std::fprintf(stderr, "%s\n", r.error.c_str());
            return 1;
        }
        const auto fileBytes = std::filesystem::file_size(path);

        // The same preparation on one thread, for the parallel speed-up.
        std::vector<LayerPtr> serial;
        for (int i = 0; i < layerCount; ++i) {
            auto l = std::make_shared<LayerElement>(*layers[i]);
            l->ready = false;
            l->imageData = sources[i];
            serial.push_back(l);
        }
        start = Clock::now();
        for (auto& l : serial) prepareLayer(*l);
        const double serialMs = msSince(start);

        std::printf(
            "run %d: prepare %.1f ms parallel (%.0f MB/s), %.1f ms on one thread (%.0f MB/s); "
            "layer data %.1f MB (%.0f%% of pixels)\n",
            run, prepMs, layerMB / (prepMs / 1000), serialMs, layerMB / (serialMs / 1000),
            static_cast<double>(channelBytes) / 1e6, 100.0 * static_cast<double>(channelBytes) / (layerMB * 1e6));
        std::printf("       write %.1f ms incl. composite (%.0f MB/s of layer + composite pixels); file %.1f MB\n",
                    writeMs, (layerMB + compositeMB) / (writeMs / 1000), static_cast<double>(fileBytes) / 1e6);
    }
    if (keep)
        std::printf("kept %s\n", path.c_str());
    else
        std::filesystem::remove(path);
    return 0;
}
