// Reservation, durable write and roll-back of an in-place file insertion.
#include "FileGrowth.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

namespace IQA {

namespace {

bool WriteAt(FILE* file, int64_t offset, const unsigned char* bytes, size_t count) {
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0 &&
           fwrite(bytes, 1, count, file) == count && fflush(file) == 0;
}

}  // namespace

bool ReserveGrowth(FILE* file, int64_t length, int64_t growth) {
    const int fd = fileno(file);
    if (posix_fallocate(fd, static_cast<off_t>(length), static_cast<off_t>(growth)) == 0) {
        return true;
    }
    // A failed reservation may have extended the file part of the way.
    (void)!ftruncate(fd, static_cast<off_t>(length));
    return false;
}

bool WriteDurably(FILE* file, int64_t offset, const unsigned char* bytes, size_t count,
                  const unsigned char* oldBytes, size_t oldCount, int64_t oldLength) {
    if (WriteAt(file, offset, bytes, count) && fsync(fileno(file)) == 0) {
        return true;
    }
    clearerr(file);
    if (WriteAt(file, offset, oldBytes, oldCount)) {
        (void)!ftruncate(fileno(file), static_cast<off_t>(oldLength));
        fsync(fileno(file));
    }
    return false;
}

}  // namespace IQA
