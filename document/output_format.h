#pragma once
// The three kinds of file a capture can write, with the numbers the stored
// setting uses, the names the command line uses and the file extensions.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pv {

enum class OutputFormat : int32_t {
    GroupedPSD = 0,    // one layer group per application, layers in inventory order
    UngroupedPSD = 1,  // no groups, layers in stacking order named "Application - Window"
    PNG = 2,           // one flat picture of the composite
};

inline constexpr OutputFormat kDefaultOutputFormat = OutputFormat::UngroupedPSD;

// The stored number; nullopt for a number that names no format.
std::optional<OutputFormat> outputFormatFromValue(int64_t value);
inline int32_t outputFormatValue(OutputFormat format) { return static_cast<int32_t>(format); }

// "grouped", "ungrouped" or "png" (the command line's names), and back.
std::optional<OutputFormat> outputFormatFromName(std::string_view name);
std::string_view outputFormatName(OutputFormat format);

// Layered formats write a PSD; PNG writes one flat picture.
inline bool isLayered(OutputFormat format) { return format != OutputFormat::PNG; }

// "psd" or "png", without the dot.
std::string_view fileExtension(OutputFormat format);

// What a file name's extension asks for: a layered document (".psd"), a flat
// picture (".png"), either in any case; nullopt for any other extension or none.
enum class FileKind { LayeredDocument, FlatPicture };
std::optional<FileKind> fileKindOfName(const std::string& path);

// Whether the format writes the kind of file the name asks for.
inline bool formatMatches(OutputFormat format, FileKind kind) {
    return isLayered(format) == (kind == FileKind::LayeredDocument);
}

}  // namespace pv
