#pragma once
// Writing a file so that readers only ever see it complete: the bytes go to a
// hidden temporary file beside the target, which is flushed to disk and then
// renamed over the target. On any failure the temporary is removed and an
// earlier file of the same name stays as it was.

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>

namespace pv {

struct WriteResult {
    bool ok = false;
    std::string error;  // one line naming the path and the reason; empty when ok
    std::string path;   // the file written, when ok
};

// What committing does when a file already stands at the target path.
enum class OnExisting {
    Replace,  // the new file takes its place
    Number,   // it stays; the new file takes the first free "name-2.ext", "name-3.ext", ...
};

class AtomicFile {
public:
    AtomicFile() = default;
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;
    // Removes the temporary file when commit() has not succeeded.
    ~AtomicFile();

    // Removes stale temporaries from the target's folder (sweepStaleTemporaries),
    // then creates the temporary file temporaryName(name, our pid) there.
    bool open(const std::string& path, OnExisting onExisting = OnExisting::Replace);
    // Writes all `length` bytes; false (and the reason kept) on the first error.
    // Once a write has failed every later write fails too.
    bool write(const void* data, size_t length);
    // Records a failure that is not a system error; later writes and commit fail.
    void fail(const std::string& reason);
    // Flushes to disk, closes and moves it to the target (path() afterwards
    // names the file as written).
    bool commit();
    // Closes and removes the temporary file; the target is untouched.
    void discard();

    bool failed() const { return !reason_.empty(); }
    // "cannot write <path>: <reason>", or empty.
    std::string error() const;
    const std::string& path() const { return path_; }
    const std::string& temporaryPath() const { return tempPath_; }

private:
    void failWithErrno(int err);
    bool moveIntoPlace();

    std::string path_;
    std::string tempPath_;
    int slot_ = -1;  // where a signal handler finds the temporary
    std::string reason_;
    int fd_ = -1;
    bool committed_ = false;
    OnExisting onExisting_ = OnExisting::Replace;
};

// The temporary file of a target named `name` (its first 200 bytes), made by
// process `pid`: ".<name>.plenavue-<pid>-<8 letters or digits>.tmp", hidden
// beside the target, e.g. ".16-11-2026-17-05-09.psd.plenavue-4711-k3x9a0qz.tmp".
std::string temporaryName(const std::string& name, pid_t pid);
// The process that made a temporary of that pattern, or 0 when the file name
// is not one of ours.
pid_t temporaryOwner(const std::string& fileName);
// Removes from `folder` every temporary of ours whose process no longer
// exists (a capture that was killed while writing); returns how many went.
// Errors (an unreadable folder, a file that went meanwhile) are ignored.
int sweepStaleTemporaries(const std::string& folder);
// Removes every temporary this process has open. Only async-signal-safe calls,
// for a signal handler that ends the process.
void removeOpenTemporaries() noexcept;

// Opens `path` atomically, hands the file to `body` and commits when `body`
// returns true and every write succeeded. `body` may throw; the temporary is
// removed and the exception's text becomes the reason.
WriteResult writeFileAtomically(const std::string& path, const std::function<bool(AtomicFile&)>& body,
                                OnExisting onExisting = OnExisting::Replace);

}  // namespace pv
