// The library's file system calls. Every file is opened without blocking and only when it is a
// regular file, and every call that changes a file or a folder (and every open and read) passes
// one hook, through which tests fail or cut any of them at the place where it really happens
// (under any sanitizer, without a preload shim).
#ifndef IQA_COMMON_FILE_CALLS_H
#define IQA_COMMON_FILE_CALLS_H

#include <fcntl.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace IQA {

enum class FileCall {
    kOpen,
    kStream,  // an open descriptor made into a FILE*
    kCreate,
    kRead,
    kWrite,
    kSync,
    kSyncFolder,
    kAllocate,
    kRename,
    kUnlink,
    kMakeFolder
};

// What a call is about to do, as the hook sees it: enough for a test to rebuild what storage
// holds after any call (which file each write goes to, which folder's entries a sync keeps).
struct FileCallInfo {
    FileCall call;
    int fd;              // the open file a read, write, sync or allocation is on, else -1
    const char* path{};  // the name opened, created, unlinked, made, synced (a folder) or renamed
    const char* to{};    // a rename's new name
    uint64_t offset{};   // where a read, write or allocation starts
    const void* data{};  // what a write writes
};

// Runs before every call below. Returns 0 to let it go ahead, or an errno value the call then
// fails with; for kRead and kWrite it may lower *count, which makes the call a short one.
using FileCallHook = int (*)(const FileCallInfo& info, size_t* count);
// Tests only; null removes the hook. Process-wide, since the worker thread dumps too.
void SetFileCallHook(FileCallHook hook);

// Opens `path` with `flags` (O_RDONLY or O_RDWR, plus O_NOFOLLOW where wanted) if it names a
// regular file: a FIFO, device, folder or socket is refused with EINVAL before anything is read,
// and the open itself never waits for a writer. Returns the descriptor, or -1 with errno set.
int OpenRegularFile(const char* path, int flags);
// The same for reading as a FILE* (what the decoders read through); null, with errno set, when
// the file cannot be opened or no stream can be made of it, and then nothing is left open.
FILE* OpenRegularStream(const char* path);
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
// Proves that bytes [offset, offset + count) can be read, without keeping them: true exactly
// when ReadFully of them would be. Pages that are all in memory and up to date are only looked
// up; others are moved into a pipe that is then closed, so they are brought in (and their errors
// reported) but never copied; where neither can be done, they are read through `scratch`.
bool ReadThrough(int fd, uint64_t offset, uint64_t count, unsigned char* scratch,
                 size_t scratchSize);
bool SyncFile(int fd);
// Makes the entries of `folder` (a creation, rename or removal) durable.
bool SyncFolder(const char* folder);
// Takes an exclusive lock on the open file, waiting at most 2 seconds for another holder, in this
// process or another, to let it go: the photos' lock, taken by a dump or the replay of a journal.
// True when the lock is held (until the file is closed) or the file system has no locks to take;
// false, with errno EWOULDBLOCK, when the wait ran out.
bool LockExclusive(int fd);
// Reserves storage for bytes [offset, offset + length) without changing the file's length, so a
// full disk shows before anything is written. A file system that cannot reserve (EOPNOTSUPP,
// ENOSYS: FAT, some FUSE ones) counts as done; the hook's error counts as the call's own.
bool ReserveSpace(int fd, uint64_t offset, uint64_t length);
bool RenameFile(const char* from, const char* to);
// True when `path` is gone afterwards (ENOENT counts as done).
bool UnlinkFile(const char* path);
// remove(3): true when this call removed the file (or empty folder) `path`.
bool RemoveEntry(const char* path);
// True when `path` is a folder afterwards; *made (when given) says whether this call made it.
bool MakeFolder(const char* path, mode_t mode, bool* made = nullptr);

}  // namespace IQA

#endif  // IQA_COMMON_FILE_CALLS_H
