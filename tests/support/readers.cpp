#include "tests/support/readers.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include <png.h>

namespace pv::test {

namespace {

std::string shellQuoted(const std::string& s) {
    std::string out = "'";
    for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// A string literal of Scheme or Python (paths hold no quotes or backslashes of their own here).
std::string literal(const std::string& s) { return "\"" + s + "\""; }

bool run(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

// ImageMagick keeps 16 bits a channel and rounds oddly on its way to an
// 8-bit PNG (alpha one step up, colour one down), so it writes 16-bit PAM.
std::string pictureFor(const std::string& folder, size_t file, ReaderView view) {
    const bool imageMagick = view == ReaderView::ImageMagickMerged || view == ReaderView::ImageMagickLayers;
    return folder + "/" + std::to_string(file) + "-" + nameOf(view) + (imageMagick ? ".pam" : ".png");
}

void runPsdTools(const std::vector<std::string>& files, const std::string& folder) {
    std::string script = "from psd_tools import PSDImage\n";
    for (size_t i = 0; i < files.size(); ++i) {
        script += "try:\n    psd = PSDImage.open(" + literal(files[i]) + ")\n";
        script += "    psd.topil().save(" + literal(pictureFor(folder, i, ReaderView::PsdToolsMerged)) + ")\n";
        script +=
            "    psd.composite(force=True).save(" + literal(pictureFor(folder, i, ReaderView::PsdToolsLayers)) + ")\n";
        script += "except Exception as e:\n    print(e)\n";
    }
    run("/usr/bin/python3 -c " + shellQuoted(script));
}

void runImageMagick(const std::vector<std::string>& files, const std::string& folder) {
    for (size_t i = 0; i < files.size(); ++i) {
        run("/usr/bin/convert " + shellQuoted(files[i] + "[0]") + " -depth 16 " +
            shellQuoted(pictureFor(folder, i, ReaderView::ImageMagickMerged)));
        // The layer images carry their offsets but no canvas: flatten them onto
        // a transparent copy of the merged image's canvas.
        run("/usr/bin/convert " + shellQuoted(files[i]) +
            " '(' -clone 0 -alpha transparent ')' -swap 0,-1 +delete "
            "-background none -flatten -depth 16 " +
            shellQuoted(pictureFor(folder, i, ReaderView::ImageMagickLayers)));
    }
}

void runGimp(const std::vector<std::string>& files, const std::string& folder) {
    std::string script =
        "(define (pv-visible in out)"
        "  (let* ((img (car (gimp-file-load RUN-NONINTERACTIVE in in)))"
        "         (layer (car (gimp-layer-new-from-visible img img \"visible\"))))"
        "    (gimp-image-insert-layer img layer 0 -1)"
        "    (file-png-save RUN-NONINTERACTIVE img layer out out 0 9 0 0 0 0 0)"
        "    (gimp-image-delete img)))";
    for (size_t i = 0; i < files.size(); ++i)
        script += " (catch #f (pv-visible " + literal(files[i]) + " " +
                  literal(pictureFor(folder, i, ReaderView::GimpLayers)) + "))";
    run("timeout 300 gimp -i -n -d -f -b " + shellQuoted("(begin " + script + ")") + " -b '(gimp-quit 0)'");
}

// A PNG file as straight RGBA, whatever its colour type.
std::optional<StraightPicture> readPng(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return std::nullopt;
    image.format = PNG_FORMAT_RGBA;
    std::vector<uint8_t> bytes(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr)) {
        png_image_free(&image);
        return std::nullopt;
    }
    return StraightPicture{static_cast<int>(image.width), static_cast<int>(image.height),
                           std::vector<double>(bytes.begin(), bytes.end())};
}

// A PAM file (P7) of RGB_ALPHA tuples with a maximum value of 65535.
std::optional<StraightPicture> readPam(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string token;
    int width = 0, height = 0, depth = 0, maxval = 0;
    if (!(in >> token) || token != "P7") return std::nullopt;
    while (in >> token && token != "ENDHDR") {
        if (token == "WIDTH")
            in >> width;
        else if (token == "HEIGHT")
            in >> height;
        else if (token == "DEPTH")
            in >> depth;
        else if (token == "MAXVAL")
            in >> maxval;
    }
    in.get();  // the newline after ENDHDR
    if (depth != 4 || maxval != 65535 || width <= 0 || height <= 0) return std::nullopt;
    std::vector<uint8_t> bytes(static_cast<size_t>(width) * height * 8);
    if (!in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size())))
        return std::nullopt;
    StraightPicture picture{width, height, std::vector<double>(bytes.size() / 2)};
    for (size_t i = 0; i < picture.rgba.size(); ++i) picture.rgba[i] = ((bytes[2 * i] << 8) | bytes[2 * i + 1]) / 257.0;
    return picture;
}

}  // namespace

std::string nameOf(ReaderView view) {
    switch (view) {
    case ReaderView::PsdToolsMerged:
        return "psd-tools-merged";
    case ReaderView::PsdToolsLayers:
        return "psd-tools-layers";
    case ReaderView::ImageMagickMerged:
        return "imagemagick-merged";
    case ReaderView::ImageMagickLayers:
        return "imagemagick-layers";
    case ReaderView::GimpLayers:
        return "gimp-layers";
    }
    return "?";
}

bool readerAvailable(ReaderView view) {
    switch (view) {
    case ReaderView::PsdToolsMerged:
    case ReaderView::PsdToolsLayers:
        return run("/usr/bin/python3 -c 'import psd_tools'");
    case ReaderView::ImageMagickMerged:
    case ReaderView::ImageMagickLayers:
        return run("/usr/bin/convert -version");
    case ReaderView::GimpLayers:
        return run("command -v gimp");
    }
    return false;
}

std::map<std::pair<std::string, ReaderView>, StraightPicture> readerPictures(const std::vector<std::string>& psdFiles,
                                                                             const std::string& folder) {
    runPsdTools(psdFiles, folder);
    runImageMagick(psdFiles, folder);
    runGimp(psdFiles, folder);

    std::map<std::pair<std::string, ReaderView>, StraightPicture> pictures;
    for (size_t i = 0; i < psdFiles.size(); ++i)
        for (ReaderView view : kReaderViews) {
            const std::string file = pictureFor(folder, i, view);
            auto picture = file.ends_with(".pam") ? readPam(file) : readPng(file);
            if (picture) pictures[{psdFiles[i], view}] = std::move(*picture);
        }
    return pictures;
}

}  // namespace pv::test
