#include "document/png_output.h"

#include "document/bitmap.h"
#include "platform/png_io.h"

namespace pv {

WriteResult writePNGFile(const std::string& path, const ImagePtr& composite, OnExisting onExisting) {
    const auto bitmap = composite ? bitmapFromImage(composite, composite->width, composite->height) : nullptr;
    if (!bitmap || bitmap->isNull()) return {false, "cannot write " + path + ": there is no picture to write", {}};
    const auto bytes = encodePNG(*bitmap);
    return writeFileAtomically(
        path,
        [&bytes](AtomicFile& file) {
            if (bytes.empty()) file.fail("the picture could not be encoded as PNG");
            return file.write(bytes.data(), bytes.size());
        },
        onExisting);
}

}  // namespace pv
