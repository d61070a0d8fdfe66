#pragma once
// The date-and-time name of a capture's file.

#include <cstdint>
#include <ctime>
#include <string>

namespace pv {

// "DD-MM-YYYY-HH-MM-SS.psd" (24-hour clock), or ".png" for output format 2.
// Example: 16 November 2026, 17:05:09, format 0 → "16-11-2026-17-05-09.psd".
std::string buildFileName(int32_t outputFormat, const std::tm& localTime);

}  // namespace pv
