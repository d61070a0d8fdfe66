#pragma once
// Turning premultiplied RGBA8 pixels back into straight colour, as the PSD
// format stores them.
//
// For alpha a from 1 to 255, each colour byte c becomes c / (a / 255), both
// divisions in single precision, limited to 0..255 and truncated toward zero.
// The single-precision quotient makes some results one below the exact value
// (a = 2, c = 2 gives 254; a = 9, c = 3 gives 84). Alpha 255 leaves the pixel
// as it is. Alpha 1 is divided like every other value (c = 1 gives 254, the
// same single-precision shortfall).
// Alpha 0 (fully transparent) gives colour 0: transparent black, so readers
// that ignore alpha show black there rather than white. Alpha is never changed.

#include <cstddef>
#include <cstdint>

namespace pv {

// Un-premultiplies every whole 4-byte pixel of `rgba` in place.
void unpremultiply(uint8_t* rgba, size_t byteCount);
// The same from `in` into `out` (byteCount bytes each), leaving `in` as it is.
void unpremultiplyInto(uint8_t* out, const uint8_t* in, size_t byteCount);

// The straight value of colour byte c under alpha a, by the rule above.
uint8_t unpremultipliedComponent(uint8_t c, uint8_t a);

// The merged image's colour as PSD readers expect it: matted over white.
// Every whole pixel with alpha a below 255 gets colour p + (255 - a) from its
// premultiplied colour p (limited to 255): the straight colour c weighted by
// a / 255 plus white for the rest, c * a/255 + 255 * (1 - a/255). Alpha, and
// every pixel with alpha 255, stay as they are.
void matteOverWhite(uint8_t* rgba, size_t byteCount);
// The same from `in` into `out` (byteCount bytes each), leaving `in` as it is.
void matteOverWhiteInto(uint8_t* out, const uint8_t* in, size_t byteCount);

}  // namespace pv
