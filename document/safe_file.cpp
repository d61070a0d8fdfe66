#include "document/safe_file.h"

#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
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

std::string randomSuffix() {
    static const char digits[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    thread_local std::mt19937_64 rng{std::random_device{}()};
    std::string s(8, 'x');
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
    // Keep the temporary's name within the folder's name length limit even
    // when the target's name is already near it.
    std::string base = nameOf(path).substr(0, 200);
    const std::string folder = folderOf(path);
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string candidate = folder + "/." + base + "." + randomSuffix();
        // 0666 less the umask, as for any new file.
        const int fd = ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) {
            fd_ = fd;
            tempPath_ = std::move(candidate);
            return true;
        }
        if (errno != EEXIST) {
            failWithErrno(errno);
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
