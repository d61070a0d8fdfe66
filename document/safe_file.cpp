#include "document/safe_file.h"

#include <cstdio>

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <random>
#include <system_error>

#include "document/file_naming.h"

namespace pv {

namespace {

std::string folderOf(const std::string& path) {
    const auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

constexpr char kMarker[] = ".plenavue-";
constexpr char kEnding[] = ".tmp";
constexpr size_t kRandomLength = 8;

// The temporaries this process has open, where a signal handler can read
// them: a slot is free (0), being filled (1) or holds a path (2).
struct Slot {
    std::atomic<int> state{0};
    char path[PATH_MAX];
};
Slot openTemporaries[32];

int registerTemporary(const std::string& path) {
    if (path.size() >= PATH_MAX) return -1;
    for (int i = 0; i < static_cast<int>(std::size(openTemporaries)); ++i) {
        Slot& slot = openTemporaries[i];
        int expected = 0;
        if (!slot.state.compare_exchange_strong(expected, 1)) continue;
        std::memcpy(slot.path, path.c_str(), path.size() + 1);
        slot.state.store(2);
        return i;
    }
    return -1;  // more at once than any run makes; this one is not known to the handler
}

void unregisterTemporary(int& slot) {
    if (slot >= 0) openTemporaries[slot].state.store(0);
    slot = -1;
}

bool processExists(pid_t pid) { return ::kill(pid, 0) == 0 || errno == EPERM; }

std::string randomSuffix() {
    static const char digits[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    thread_local std::mt19937_64 rng{std::random_device{}()};
    std::string s(kRandomLength, 'x');
    for (auto& ch : s) ch = digits[rng() % (sizeof(digits) - 1)];
    return s;
}

}  // namespace

AtomicFile::~AtomicFile() {
    if (!committed_) discard();
}

bool AtomicFile::open(const std::string& path, OnExisting onExisting) {
    path_ = path;
    onExisting_ = onExisting;
    if (path.empty() || path.back() == '/') {
        reason_ = "not a file name";
        return false;
    }
    const std::string folder = folderOf(path);
    sweepStaleTemporaries(folder);
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string candidate = folder + "/" + temporaryName(nameOf(path), ::getpid());
        // Known to the signal handler before it exists, so that no moment
        // leaves a temporary it would not remove.
        slot_ = registerTemporary(candidate);
        // 0666 less the umask, as for any new file.
        const int fd = ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) {
            fd_ = fd;
            tempPath_ = std::move(candidate);
            return true;
        }
        const int err = errno;
        unregisterTemporary(slot_);
        if (err != EEXIST) {
            failWithErrno(err);
            return false;
        }
    }
    failWithErrno(EEXIST);
    return false;
}

bool AtomicFile::write(const void* data, size_t length) {
    if (fd_ < 0 || failed()) {
        if (!failed()) reason_ = "file is not open";
        return false;
    }
    const auto* p = static_cast<const uint8_t*>(data);
    while (length > 0) {
        const ssize_t n = ::write(fd_, p, length);
        if (n < 0) {
            if (errno == EINTR) continue;
            failWithErrno(errno);
            return false;
        }
        if (n == 0) {
            failWithErrno(ENOSPC);
            return false;
        }
        p += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

void AtomicFile::fail(const std::string& reason) {
    if (!failed()) reason_ = reason.empty() ? "write failed" : reason;
}

bool AtomicFile::commit() {
    if (fd_ < 0 || failed()) {
        if (!failed()) reason_ = "file is not open";
        discard();
        return false;
    }
    if (::fsync(fd_) != 0) {
        failWithErrno(errno);
        discard();
        return false;
    }
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) {
        failWithErrno(errno);
        discard();
        return false;
    }
    if (!moveIntoPlace()) {
        discard();
        return false;
    }
    committed_ = true;
    unregisterTemporary(slot_);
    // Make the rename itself durable; a failure here does not undo the file.
    const int dir = ::open(folderOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return true;
}

bool AtomicFile::moveIntoPlace() {
    if (onExisting_ == OnExisting::Replace) {
        if (::rename(tempPath_.c_str(), path_.c_str()) == 0) return true;
        failWithErrno(errno);
        return false;
    }
    // Never replaces: the kernel refuses the move when the name is taken, even
    // by a file that another process put there a moment ago.
    for (int n = 1; n <= kMaxNumberedNames; ++n) {
        const std::string candidate = numberedPath(path_, n);
        if (::renameat2(AT_FDCWD, tempPath_.c_str(), AT_FDCWD, candidate.c_str(), RENAME_NOREPLACE) == 0) {
            path_ = candidate;
            return true;
        }
        if (errno == EEXIST) continue;
        if (errno != EINVAL && errno != ENOSYS) break;
        // A file system without the no-replace move: a hard link fails the same way.
        if (::link(tempPath_.c_str(), candidate.c_str()) == 0) {
            ::unlink(tempPath_.c_str());
            path_ = candidate;
            return true;
        }
        if (errno != EEXIST) break;
    }
    failWithErrno(errno);
    return false;
}

void AtomicFile::discard() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
    if (!tempPath_.empty() && !committed_) {
        ::unlink(tempPath_.c_str());
        tempPath_.clear();
    }
    unregisterTemporary(slot_);
}

std::string temporaryName(const std::string& name, pid_t pid) {
    // The target's name is cut so that the temporary's stays within the
    // folder's name length limit even when the target's is near it.
    return "." + name.substr(0, 200) + kMarker + std::to_string(pid) + "-" + randomSuffix() + kEnding;
}

pid_t temporaryOwner(const std::string& fileName) {
    const size_t endingLength = sizeof kEnding - 1;
    if (fileName.size() < 1 + endingLength || fileName[0] != '.' ||
        fileName.compare(fileName.size() - endingLength, endingLength, kEnding) != 0)
        return 0;
    const size_t marker = fileName.rfind(kMarker);
    if (marker == std::string::npos || marker == 0) return 0;
    const size_t digits = marker + sizeof kMarker - 1;
    const size_t dash = fileName.find('-', digits);
    if (dash == std::string::npos || dash == digits || dash - digits > 9) return 0;
    if (dash + 1 + kRandomLength + endingLength != fileName.size()) return 0;
    pid_t pid = 0;
    for (size_t i = digits; i < dash; ++i) {
        if (fileName[i] < '0' || fileName[i] > '9') return 0;
        pid = pid * 10 + (fileName[i] - '0');
    }
    for (size_t i = dash + 1; i < dash + 1 + kRandomLength; ++i) {
        const char c = fileName[i];
        if (!((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'))) return 0;
    }
    return pid;
}

int sweepStaleTemporaries(const std::string& folder) {
    DIR* dir = ::opendir(folder.c_str());
    if (!dir) return 0;
    int removed = 0;
    while (const dirent* entry = ::readdir(dir)) {
        const pid_t owner = temporaryOwner(entry->d_name);
        if (owner <= 0 || processExists(owner)) continue;
        if (::unlinkat(::dirfd(dir), entry->d_name, 0) == 0) ++removed;
    }
    ::closedir(dir);
    return removed;
}

void removeOpenTemporaries() noexcept {
    for (Slot& slot : openTemporaries)
        if (slot.state.load() == 2) ::unlink(slot.path);
}

std::string AtomicFile::error() const {
    if (!failed()) return {};
    return "cannot write " + path_ + ": " + reason_;
}

void AtomicFile::failWithErrno(int err) {
    if (!failed()) reason_ = std::generic_category().message(err);
}

WriteResult writeFileAtomically(const std::string& path, const std::function<bool(AtomicFile&)>& body,
                                OnExisting onExisting) {
    AtomicFile file;
    if (!file.open(path, onExisting)) return {false, file.error(), {}};
    try {
        if (!body(file)) file.fail("write failed");
    } catch (const std::bad_alloc&) {
        file.fail("out of memory");
    } catch (const std::exception& e) {
        file.fail(e.what());
    }
    if (file.failed()) {
        file.discard();
        return {false, file.error(), {}};
    }
    if (!file.commit()) return {false, file.error(), {}};
    return {true, {}, file.path()};
}

}  // namespace pv
