#include "document/file_naming.h"

#include <cstdio>

namespace pv {

std::string buildFileName(int32_t outputFormat, const std::tm& localTime) {
    char name[64];
    std::snprintf(name, sizeof name, "%02d-%02d-%04d-%02d-%02d-%02d.%s", localTime.tm_mday, localTime.tm_mon + 1,
                  localTime.tm_year + 1900, localTime.tm_hour, localTime.tm_min, localTime.tm_sec,
                  outputFormat == 2 ? "png" : "psd");
    return name;
}

}  // namespace pv
