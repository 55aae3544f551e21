// The hooked file system calls and the regular-file rule for opening.
#include "common/FileCalls.h"

#include <sys/file.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <thread>

namespace IQA {

namespace {

std::atomic<FileCallHook> gHook{nullptr};

// 0 when the call may go ahead; otherwise errno is set and the call must fail.
int Intercept(const FileCallInfo& info, size_t* count = nullptr) {
    const FileCallHook hook = gHook.load();
    if (hook == nullptr) {
        return 0;
    }
    size_t unused = 0;
    if (const int error = hook(info, count != nullptr ? count : &unused)) {
        errno = error;
        return error;
    }
    return 0;
}

int OpenChecked(FileCall call, const char* path, int flags, mode_t mode) {
    if (Intercept({call, -1, path}) != 0) {
        return -1;
    }
    // O_NONBLOCK: opening a FIFO for reading would otherwise wait for a writer for ever.
    const int fd = open(path, flags | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, mode);
    if (fd < 0) {
        return -1;
    }
    struct stat status = {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(fd);
        errno = EINVAL;
        return -1;
    }
    return fd;
}

// Bytes proven at once: the largest pipe an unprivileged process may ask for by default.
constexpr size_t kPipeBytes = 1 << 20;
// Pages of such a chunk whose state one call asks for, at the smallest page size, one more for a
// chunk that starts inside a page.
constexpr size_t kChunkPages = kPipeBytes / 4096 + 1;

// True when bytes [offset, offset + count) of the open file lie inside it and every page of them
// is in memory and up to date: a read of them would then be served from memory, so it can neither
// fail nor wait for storage. mincore() tells that of a mapping that is never touched, so nothing
// faults in and a file cut short meanwhile raises no SIGBUS. Of a file the caller neither owns nor
// may write, the kernel hides its cache and answers "in memory" throughout, so there, as wherever
// the file cannot be mapped, the answer is no and the pipe or a read decides.
bool InMemory(int fd, uint64_t offset, size_t count) {
    struct stat status = {};
    if (fstat(fd, &status) != 0 || status.st_uid != geteuid()) {
        return false;
    }
    const uint64_t size = static_cast<uint64_t>(status.st_size);
    if (count > size || offset > size - count) {
        return false;
    }
    const uint64_t page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    const uint64_t start = offset / page * page;
    const size_t length = static_cast<size_t>(offset + count - start);
    const size_t n = (length + page - 1) / page;
    unsigned char pages[kChunkPages];
    if (n > kChunkPages) {
        return false;
    }
    void* view = mmap(nullptr, length, PROT_READ, MAP_SHARED, fd, static_cast<off_t>(start));
    if (view == MAP_FAILED) {
        return false;
    }
    const bool known = mincore(view, length, pages) == 0;
    munmap(view, length);
    return known && std::all_of(pages, pages + n, [](unsigned char p) { return (p & 1) != 0; });
}

// Moves up to `count` bytes at `offset` into a fresh pipe, closed on the way out. Returns how
// many were moved; 0 or less when none were (the end of the file, an error, or no pipe or no
// splicing here), and then a read decides.
ssize_t SpliceAway(int fd, uint64_t offset, size_t count) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        return -1;
    }
    const ScopedFd readEnd(ends[0]), writeEnd(ends[1]);
    fcntl(ends[1], F_SETPIPE_SZ, static_cast<int>(kPipeBytes));  // else more, smaller rounds
    const int capacity = fcntl(ends[1], F_GETPIPE_SZ);
    if (capacity <= 0) {
        return -1;
    }
    off_t at = static_cast<off_t>(offset);
    return sendfile(ends[1], fd, &at, std::min(count, static_cast<size_t>(capacity)));
}

}  // namespace

void SetFileCallHook(FileCallHook hook) {
    gHook.store(hook);
}

int OpenRegularFile(const char* path, int flags) {
    return OpenChecked(FileCall::kOpen, path, flags, 0);
}

FILE* OpenRegularStream(const char* path) {
    const int fd = OpenRegularFile(path, O_RDONLY);
    if (fd < 0) {
        return nullptr;
    }
    FILE* stream = Intercept({FileCall::kStream, fd, path}) == 0 ? fdopen(fd, "rb") : nullptr;
    if (stream == nullptr) {
        const int error = errno;
        close(fd);
        errno = error;
    }
    return stream;
}

int CreateFile(const char* path) {
    return OpenChecked(FileCall::kCreate, path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0644);
}

void CloseFile(int fd) {
    if (fd >= 0) {
        close(fd);
    }
}

int64_t FileLength(int fd) {
    struct stat status = {};
    return fstat(fd, &status) == 0 ? static_cast<int64_t>(status.st_size) : -1;
}

bool ReadFully(int fd, uint64_t offset, void* out, size_t count) {
    auto* bytes = static_cast<unsigned char*>(out);
    while (count > 0) {
        size_t chunk = count;
        if (Intercept({FileCall::kRead, fd, nullptr, nullptr, offset}, &chunk) != 0) {
            return false;
        }
        const ssize_t n = pread(fd, bytes, chunk, static_cast<off_t>(offset));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        bytes += n, offset += static_cast<uint64_t>(n), count -= static_cast<size_t>(n);
    }
    return true;
}

bool ReadThrough(int fd, uint64_t offset, uint64_t count, unsigned char* scratch,
                 size_t scratchSize) {
    while (count > 0) {
        size_t chunk = static_cast<size_t>(std::min<uint64_t>(count, kPipeBytes));
        if (Intercept({FileCall::kRead, fd, nullptr, nullptr, offset}, &chunk) != 0) {
            return false;
        }
        ssize_t n = InMemory(fd, offset, chunk) ? static_cast<ssize_t>(chunk)
                                                : SpliceAway(fd, offset, chunk);
        if (n <= 0) {
            chunk = std::min(chunk, scratchSize);
            n = ReadFully(fd, offset, scratch, chunk) ? static_cast<ssize_t>(chunk) : 0;
        }
        if (n <= 0) {
            return false;
        }
        offset += static_cast<uint64_t>(n), count -= static_cast<uint64_t>(n);
    }
    return true;
}

bool WriteFully(int fd, uint64_t offset, const void* data, size_t count) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    while (count > 0) {
        size_t chunk = count;
        if (Intercept({FileCall::kWrite, fd, nullptr, nullptr, offset, bytes}, &chunk) != 0) {
            return false;
        }
        const ssize_t n = pwrite(fd, bytes, chunk, static_cast<off_t>(offset));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        bytes += n, offset += static_cast<uint64_t>(n), count -= static_cast<size_t>(n);
    }
    return true;
}

bool SyncFile(int fd) {
    return Intercept({FileCall::kSync, fd}) == 0 && fsync(fd) == 0;
}

bool SyncFolder(const char* folder) {
    if (Intercept({FileCall::kOpen, -1, folder}) != 0) {
        return false;
    }
    const int fd = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const bool synced = Intercept({FileCall::kSyncFolder, fd, folder}) == 0 && fsync(fd) == 0;
    close(fd);
    return synced;
}

bool LockExclusive(int fd) {
    constexpr std::chrono::milliseconds kPoll{1};
    constexpr std::chrono::seconds kWait{2};
    const auto deadline = std::chrono::steady_clock::now() + kWait;
    for (;;) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
            return true;
        }
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return true;  // no locks on this file system: nothing to wait for
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            errno = EWOULDBLOCK;
            return false;
        }
        std::this_thread::sleep_for(kPoll);
    }
}

bool ReserveSpace(int fd, uint64_t offset, uint64_t length) {
    int error = Intercept({FileCall::kAllocate, fd, nullptr, nullptr, offset});
#ifdef FALLOC_FL_KEEP_SIZE
    if (error == 0 && fallocate(fd, FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset),
                                static_cast<off_t>(length)) != 0) {
        error = errno;
    }
#else
    (void)length;
#endif
    return error == 0 || error == EOPNOTSUPP || error == ENOSYS;
}

bool RenameFile(const char* from, const char* to) {
    return Intercept({FileCall::kRename, -1, from, to}) == 0 && rename(from, to) == 0;
}

bool UnlinkFile(const char* path) {
    return Intercept({FileCall::kUnlink, -1, path}) == 0 && (unlink(path) == 0 || errno == ENOENT);
}

bool RemoveEntry(const char* path) {
    return Intercept({FileCall::kUnlink, -1, path}) == 0 && remove(path) == 0;
}

bool MakeFolder(const char* path, mode_t mode, bool* made) {
    if (Intercept({FileCall::kMakeFolder, -1, path}) != 0) {
        return false;
    }
    struct stat status = {};
    const bool now = mkdir(path, mode) == 0;
    if (!now && errno != EEXIST) {
        return false;
    }
    if (made != nullptr) {
        *made = now;
    }
    return lstat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace IQA
