#include "document/output_format.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace pv {

std::optional<OutputFormat> outputFormatFromValue(int64_t value) {
    switch (value) {
    case 0:
        return OutputFormat::GroupedPSD;
    case 1:
        return OutputFormat::UngroupedPSD;
    case 2:
        return OutputFormat::PNG;
    default:
        return std::nullopt;
    }
}

std::optional<OutputFormat> outputFormatFromName(std::string_view name) {
    for (OutputFormat f : {OutputFormat::GroupedPSD, OutputFormat::UngroupedPSD, OutputFormat::PNG})
        if (outputFormatName(f) == name) return f;
    return std::nullopt;
}

std::string_view outputFormatName(OutputFormat format) {
    switch (format) {
    case OutputFormat::GroupedPSD:
        return "grouped";
    case OutputFormat::UngroupedPSD:
        return "ungrouped";
    case OutputFormat::PNG:
        return "png";
    }
    return "ungrouped";
}

std::string_view fileExtension(OutputFormat format) { return isLayered(format) ? "psd" : "png"; }

std::optional<FileKind> fileKindOfName(const std::string& path) {
    std::string ext = std::filesystem::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    if (ext == ".psd") return FileKind::LayeredDocument;
    if (ext == ".png") return FileKind::FlatPicture;
    return std::nullopt;
}

}  // namespace pv
