#pragma once
// The date-and-time name of a capture's file.

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>

#include "document/output_format.h"

namespace pv {

// "DD-MM-YYYY-HH-MM-SS.psd" (24-hour clock), or ".png" for the PNG format.
// Example: 16 November 2026, 17:05:09, a layered format → "16-11-2026-17-05-09.psd".
std::string buildFileName(OutputFormat outputFormat, const std::tm& localTime);

// The n-th name for a capture that must not replace a file: the path itself
// for n = 1, "name-n.ext" after it ("16-11-2026-17-05-09-2.psd").
std::string numberedPath(const std::string& path, int n);
inline constexpr int kMaxNumberedNames = 9999;

// The first numbered form of path that is not taken.
std::string firstFreePath(const std::string& path, const std::function<bool(const std::string&)>& taken);

}  // namespace pv
