#include "tests/support/readers.h"

#include <cstdlib>
#include <fstream>
#include <optional>

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

// Where a view of a file is written: PNG by psd-tools and GIMP, 16-bit PAM by
// ImageMagick, which keeps 16 bits a channel and rounds oddly on its way to 8
// (alpha one step up, colour one down). The PNG files become PAM files too.
std::string pictureFor(const std::string& folder, size_t file, ReaderView view, const char* extension) {
    return folder + "/" + std::to_string(file) + "-" + nameOf(view) + extension;
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
    using enum ReaderView;
    std::string python = "from psd_tools import PSDImage\n";
    std::string scheme =
        "(define (pv-visible in out)"
        "  (let* ((img (car (gimp-file-load RUN-NONINTERACTIVE in in)))"
        "         (layer (car (gimp-layer-new-from-visible img img \"visible\"))))"
        "    (gimp-image-insert-layer img layer 0 -1)"
        "    (file-png-save RUN-NONINTERACTIVE img layer out out 0 9 0 0 0 0 0)"
        "    (gimp-image-delete img)))";
    for (size_t i = 0; i < psdFiles.size(); ++i) {
        const std::string& psd = psdFiles[i];
        python += "try:\n    psd = PSDImage.open(" + literal(psd) + ")\n    psd.topil().save(" +
                  literal(pictureFor(folder, i, PsdToolsMerged, ".png")) + ")\n    psd.composite(force=True).save(" +
                  literal(pictureFor(folder, i, PsdToolsLayers, ".png")) + ")\nexcept Exception as e:\n    print(e)\n";
        scheme +=
            " (catch #f (pv-visible " + literal(psd) + " " + literal(pictureFor(folder, i, GimpLayers, ".png")) + "))";
        run("/usr/bin/convert " + shellQuoted(psd + "[0]") + " -depth 16 " +
            shellQuoted(pictureFor(folder, i, ImageMagickMerged, ".pam")));
        // The layer images carry their offsets but no canvas: flatten them onto
        // a transparent copy of the merged image's canvas.
        run("/usr/bin/convert " + shellQuoted(psd) + " '(' -clone 0 -alpha transparent ')' -swap 0,-1 +delete " +
            "-background none -flatten -depth 16 " + shellQuoted(pictureFor(folder, i, ImageMagickLayers, ".pam")));
    }
    run("/usr/bin/python3 -c " + shellQuoted(python));
    run("timeout 300 gimp -i -n -d -f -b " + shellQuoted("(begin " + scheme + ")") + " -b '(gimp-quit 0)'");

    std::map<std::pair<std::string, ReaderView>, StraightPicture> pictures;
    for (size_t i = 0; i < psdFiles.size(); ++i)
        for (ReaderView view : kReaderViews) {
            const std::string pam = pictureFor(folder, i, view, ".pam"), png = pictureFor(folder, i, view, ".png");
            if (std::ifstream(png))
                run("/usr/bin/convert " + shellQuoted(png) + " -alpha on -depth 16 " + shellQuoted(pam));
            if (auto picture = readPam(pam)) pictures[{psdFiles[i], view}] = std::move(*picture);
        }
    return pictures;
}

}  // namespace pv::test
