#include "document/file_naming.h"

#include <cstdio>

namespace pv {

std::string buildFileName(OutputFormat outputFormat, const std::tm& localTime) {
    char name[64];
    std::snprintf(name, sizeof name, "%02d-%02d-%04d-%02d-%02d-%02d.%s", localTime.tm_mday, localTime.tm_mon + 1,
                  localTime.tm_year + 1900, localTime.tm_hour, localTime.tm_min, localTime.tm_sec,
                  std::string(fileExtension(outputFormat)).c_str());
    return name;
}

std::string numberedPath(const std::string& path, int n) {
    if (n <= 1) return path;
    const size_t slash = path.find_last_of('/');
    const size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    size_t dot = path.find_last_of('.');
    // A leading dot ("/x/.hidden") starts the name, not an extension.
    if (dot == std::string::npos || dot <= nameStart) dot = path.size();
    return path.substr(0, dot) + "-" + std::to_string(n) + path.substr(dot);
}

std::string firstFreePath(const std::string& path, const std::function<bool(const std::string&)>& taken) {
    for (int n = 1; n <= kMaxNumberedNames; ++n) {
        std::string candidate = numberedPath(path, n);
        if (!taken(candidate)) return candidate;
    }
    return path;
}

}  // namespace pv
