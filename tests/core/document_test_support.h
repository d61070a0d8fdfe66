#pragma once
// Helpers shared by the document tests: the PSD reader and PackBits decoder
// of tests/support, scratch folders and pixel layers.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "document/layer_element.h"
#include "tests/support/psd_records.h"

namespace pvtest {

inline void writeText(const std::filesystem::path& p, const std::string& text) {
    std::ofstream out(p, std::ios::binary);
    out << text;
}

// A fresh folder under /tmp, removed with everything in it at the end.
struct ScratchDir {
    std::filesystem::path path;
    ScratchDir() {
        std::string templ = (std::filesystem::temp_directory_path() / "pv-doc-XXXXXX").string();
        if (!mkdtemp(templ.data())) throw std::runtime_error("mkdtemp failed");
        path = templ;
    }
    ~ScratchDir() {
        std::error_code ec;
        std::filesystem::permissions(path, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ec);
        std::filesystem::remove_all(path, ec);
    }
    std::string operator/(const std::string& name) const { return (path / name).string(); }
    // Names of everything in the folder, hidden files included.
    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        for (const auto& e : std::filesystem::directory_iterator(path)) names.push_back(e.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
};

// Runs `body` in a child process and returns its exit code (-1 when it did
// not exit normally). For changes that must not leak into the test process:
// resource limits, user ids.
inline int inChildProcess(const std::function<int()>& body) {
    const pid_t pid = fork();
    if (pid == 0) _exit(body());
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A pixel layer at (x, y) of w x h pixels; pixels given premultiplied.
inline pv::LayerPtr pixelLayer(const std::string& name, double x, double y, int w, int h,
                               std::vector<uint8_t> rgbaPremultiplied) {
    auto layer = std::make_shared<pv::LayerElement>();
    layer->name = name;
    layer->location = {x, y, static_cast<double>(w), static_cast<double>(h)};
    layer->imageData = std::move(rgbaPremultiplied);
    return layer;
}

// w x h pixels of one premultiplied colour.
inline std::vector<uint8_t> solid(int w, int h, uint8_t r, uint8_t g, uint8_t b, uint8_t a) {
    std::vector<uint8_t> v;
    v.reserve(static_cast<size_t>(w) * h * 4);
    for (int i = 0; i < w * h; ++i) v.insert(v.end(), {r, g, b, a});
    return v;
}

}  // namespace pvtest
