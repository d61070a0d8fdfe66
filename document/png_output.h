#pragma once
// The flat output: the composite picture as one PNG file.

#include <string>

#include "document/safe_file.h"
#include "platform/image.h"

namespace pv {

// Writes the composite as an 8-bit RGBA PNG through a temporary file; refuses
// an empty composite.
WriteResult writePNGFile(const std::string& path, const ImagePtr& composite, OnExisting onExisting);

}  // namespace pv
