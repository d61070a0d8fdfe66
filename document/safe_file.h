#pragma once
// Writing a file so that readers only ever see it complete: the bytes go to a
// hidden temporary file beside the target, which is flushed to disk and then
// renamed over the target. On any failure the temporary is removed and an
// earlier file of the same name stays as it was.

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

    // Creates the temporary file ".<name>.<random>" in the target's folder.
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
    std::string reason_;
    int fd_ = -1;
    bool committed_ = false;
    OnExisting onExisting_ = OnExisting::Replace;
};

// Opens `path` atomically, hands the file to `body` and commits when `body`
// returns true and every write succeeded. `body` may throw; the temporary is
// removed and the exception's text becomes the reason.
WriteResult writeFileAtomically(const std::string& path, const std::function<bool(AtomicFile&)>& body,
                                OnExisting onExisting = OnExisting::Replace);

}  // namespace pv
