#pragma once
// A folder of the fuzz target's own for the files it writes: in memory
// (/dev/shm) where there is one, so that each run's fsync costs nothing;
// removed when the target ends.

#include <unistd.h>

#include <filesystem>
#include <string>

namespace pvfuzz {

class ScratchFolder {
public:
    explicit ScratchFolder(const std::string& name) {
        std::error_code error;
        const std::filesystem::path memory = "/dev/shm";
        const auto root =
            std::filesystem::is_directory(memory, error) ? memory : std::filesystem::temp_directory_path();
        path_ = root / (name + "-" + std::to_string(::getpid()));
        std::filesystem::create_directories(path_);
    }
    ~ScratchFolder() {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace pvfuzz
