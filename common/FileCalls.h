// The library's file system calls. Every file is opened without blocking and only when it is a
// regular file, and every call passes one hook, through which tests fail or cut any of them at
// the place where it really happens (under any sanitizer, without a preload shim).
#ifndef IQA_COMMON_FILE_CALLS_H
#define IQA_COMMON_FILE_CALLS_H

#include <fcntl.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace IQA {

enum class FileCall { kOpen, kRead, kWrite, kSync, kAllocate, kRename, kUnlink, kMakeFolder };

// Runs before every call below. Returns 0 to let it go ahead, or an errno value the call then
// fails with; for kRead and kWrite it may lower *count, which makes the call a short one.
using FileCallHook = int (*)(FileCall call, size_t* count);
// Tests only; null removes the hook. Process-wide, since the worker thread dumps too.
void SetFileCallHook(FileCallHook hook);

// Opens `path` with `flags` (O_RDONLY or O_RDWR, plus O_NOFOLLOW where wanted) if it names a
// regular file: a FIFO, device, folder or socket is refused with EINVAL before anything is read,
// and the open itself never waits for a writer. Returns the descriptor, or -1 with errno set.
int OpenRegularFile(const char* path, int flags);
// Creates (or empties) a regular file of our own, never through a symbolic link.
int CreateFile(const char* path);
void CloseFile(int fd);

// A descriptor closed on every path out of the scope that opened it.
class ScopedFd {
  public:
    explicit ScopedFd(int fd) : fd_(fd) {}
    ~ScopedFd() { CloseFile(fd_); }
    ScopedFd(const ScopedFd&) = delete;
    ScopedFd& operator=(const ScopedFd&) = delete;
    int get() const { return fd_; }

  private:
    int fd_;
};
// Length of an open file, or -1.
int64_t FileLength(int fd);

// Whole transfers: a short call or EINTR goes on where it stopped; false on an error or on the
// end of the file before `count` bytes were read.
bool ReadFully(int fd, uint64_t offset, void* out, size_t count);
bool WriteFully(int fd, uint64_t offset, const void* bytes, size_t count);
bool SyncFile(int fd);
// Makes the entries of `folder` (a creation, rename or removal) durable.
bool SyncFolder(const char* folder);
// Reserves storage for bytes [offset, offset + length) without changing the file's length, so a
// full disk shows before anything is written. A file system that cannot reserve counts as done.
bool ReserveSpace(int fd, uint64_t offset, uint64_t length);
bool RenameFile(const char* from, const char* to);
// True when `path` is gone afterwards (ENOENT counts as done).
bool UnlinkFile(const char* path);
// True when `path` is a folder afterwards.
bool MakeFolder(const char* path, mode_t mode);

}  // namespace IQA

#endif  // IQA_COMMON_FILE_CALLS_H
