#pragma once
// What programs we did not write show of our PSD files: the merged image as
// they read it, or the picture they rebuild from the layers. Each reader runs
// once for all the files and writes PNG or PAM files, which are read back here.

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace pv::test {

enum class ReaderView {
    PsdToolsMerged,     // psd-tools' topil(): the merged image, un-matted from white
    PsdToolsLayers,     // psd-tools' composite(force=True): the layers composed
    ImageMagickMerged,  // ImageMagick's first image: the merged image
    ImageMagickLayers,  // ImageMagick's layer images flattened onto the canvas
    GimpLayers,         // GIMP's projection of the layers it opened
};
inline constexpr ReaderView kReaderViews[] = {ReaderView::PsdToolsMerged, ReaderView::PsdToolsLayers,
                                              ReaderView::ImageMagickMerged, ReaderView::ImageMagickLayers,
                                              ReaderView::GimpLayers};

std::string nameOf(ReaderView view);

// Whether the program behind the view is installed (Debian's python3-psd-tools,
// imagemagick, gimp).
bool readerAvailable(ReaderView view);

// A picture as a reader wrote it: RGBA, straight (not premultiplied), on a
// scale of 0 to 255 (ImageMagick's in 16-bit steps, the others' in 8-bit).
struct StraightPicture {
    int width = 0, height = 0;
    std::vector<double> rgba;
};

// The picture every view shows of every file, keyed by file and view; a view
// that could not read a file has no entry. Scratch files go into `folder`.
std::map<std::pair<std::string, ReaderView>, StraightPicture> readerPictures(const std::vector<std::string>& psdFiles,
                                                                             const std::string& folder);

}  // namespace pv::test
