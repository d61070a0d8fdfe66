#pragma once
// Helpers shared by the document tests: the independent PackBits decoder
// (tests/support), a big-endian reader, scratch folders and pixel layers.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "document/layer_element.h"
#include "tests/support/packbits_decoder.h"

namespace pvtest {

// Reads big-endian fields out of a byte vector, failing the test on overrun.
struct Reader {
    const std::vector<uint8_t>& bytes;
    size_t pos = 0;

    uint64_t unsignedValue(int n) {
        if (pos + n > bytes.size()) throw std::runtime_error("read past the end at " + std::to_string(pos));
        uint64_t v = 0;
        for (int i = 0; i < n; ++i) v = (v << 8) | bytes[pos++];
        return v;
    }
    uint8_t u8() { return static_cast<uint8_t>(unsignedValue(1)); }
    uint16_t u16() { return static_cast<uint16_t>(unsignedValue(2)); }
    int16_t i16() { return static_cast<int16_t>(unsignedValue(2)); }
    uint32_t u32() { return static_cast<uint32_t>(unsignedValue(4)); }
    int32_t i32() { return static_cast<int32_t>(unsignedValue(4)); }
    std::string text(size_t n) {
        if (pos + n > bytes.size()) throw std::runtime_error("read past the end at " + std::to_string(pos));
        std::string s(bytes.begin() + pos, bytes.begin() + pos + n);
        pos += n;
        return s;
    }
    std::vector<uint8_t> take(size_t n) {
        if (pos + n > bytes.size()) throw std::runtime_error("read past the end at " + std::to_string(pos));
        std::vector<uint8_t> v(bytes.begin() + pos, bytes.begin() + pos + n);
        pos += n;
        return v;
    }
    size_t left() const { return bytes.size() - pos; }
};

inline std::vector<uint8_t> readFile(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

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
