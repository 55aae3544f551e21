// The journal's file format, its durable writing, and the recovery that replays it.
#include "upload/DumpJournal.h"

#include <dirent.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "common/CameraLayout.h"
#include "common/FileCalls.h"
#include "common/IqaLog.h"
#include "common/LittleEndian.h"
#include "common/MallocBlock.h"

namespace IQA {

namespace {

constexpr char kSuffix[] = ".iqajournal";
constexpr char kUnfinished[] = ".new";  // behind kSuffix while the journal is being written
// The format written now, and the first one, whose journals are still replayed: it named the
// photo's device and inode too, which a copy or a remount changes.
constexpr unsigned char kMagic[8] = {'I', 'Q', 'A', 'J', 'R', 'N', 'L', '2'};
constexpr unsigned char kFirstMagic[8] = {'I', 'Q', 'A', 'J', 'R', 'N', 'L', '1'};
constexpr size_t kFields = 4;
constexpr size_t kFirstFields = 6;
constexpr size_t kHeaderBytes = sizeof(kMagic) + 8 * kFields;
constexpr size_t kChecksumBytes = 8;
constexpr uint64_t kFirstPrefixSpan = 4096;
constexpr const char* kRecovery = "RecoverDumps";  // the operation every recovery line names

constexpr uint64_t kFnvBasis = 0xcbf29ce484222325ULL;
constexpr uint64_t kFnvPrime = 0x100000001b3ULL;

// 64-bit FNV-1a: enough to tell a journal damaged on storage or made by someone else from ours.
class Checksum {
  public:
    void Add(const unsigned char* bytes, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            value_ = (value_ ^ bytes[i]) * kFnvPrime;
        }
    }
    uint64_t value() const { return value_; }

  private:
    uint64_t value_ = kFnvBasis;
};

void Encode(const JournalHeader& h, unsigned char* out) {
    std::memcpy(out, kMagic, sizeof(kMagic));
    const uint64_t fields[kFields] = {h.oldLength, h.offset, h.prefix, h.tailLength};
    unsigned char* at = out + sizeof(kMagic);
    for (const uint64_t field : fields) {
        StoreLE64(at, field);
        at += 8;
    }
}

// A whole journal of `size` bytes, of either format: magic, header, tail, and a checksum that
// matches. *tailAt is where its tail starts.
bool Decode(const unsigned char* bytes, size_t size, JournalHeader* h, size_t* tailAt) {
    const bool first =
        size >= sizeof(kFirstMagic) && std::memcmp(bytes, kFirstMagic, sizeof(kFirstMagic)) == 0;
    const size_t fields = first ? kFirstFields : kFields;
    *tailAt = sizeof(kMagic) + 8 * fields;
    if (size < *tailAt + kChecksumBytes ||
        (!first && std::memcmp(bytes, kMagic, sizeof(kMagic)) != 0)) {
        return false;
    }
    // The first format: device, inode, old length, offset, fingerprint, tail length.
    uint64_t unused = 0;
    uint64_t* first6[kFirstFields] = {&unused,    &unused,    &h->oldLength,
                                      &h->offset, &h->prefix, &h->tailLength};
    uint64_t* now4[kFields] = {&h->oldLength, &h->offset, &h->prefix, &h->tailLength};
    for (size_t i = 0; i < fields; ++i) {
        *(first ? first6 : now4)[i] = LoadLE64(bytes + sizeof(kMagic) + 8 * i);
    }
    h->wholePrefix = !first;
    Checksum sum;
    sum.Add(bytes, size - kChecksumBytes);
    return h->tailLength == size - *tailAt - kChecksumBytes &&
           sum.value() == LoadLE64(bytes + size - kChecksumBytes);
}

// FNV-1a over the little-endian 64-bit words of `count` bytes (the last word padded with zeros),
// continuing from `hash`: a word at a time, so a photo of megabytes is hashed in about a
// millisecond.
uint64_t HashWords(uint64_t hash, const unsigned char* bytes, size_t count) {
    for (size_t i = 0; i < count; i += 8) {
        unsigned char word[8] = {};
        std::memcpy(word, bytes + i, std::min<size_t>(8, count - i));
        hash = (hash ^ LoadLE64(word)) * kFnvPrime;
    }
    return hash;
}

// The hash that recognises a photo: of every byte in front of `offset`, or, for a journal of the
// first format, the FNV-1a of the up to 4 KiB in front of it.
bool PrefixHash(int photo, uint64_t offset, bool whole, uint64_t* hash) {
    constexpr size_t kChunk = 64 * 1024;  // a multiple of the word
    const uint64_t from = whole ? 0 : offset - std::min(offset, kFirstPrefixSpan);
    std::vector<unsigned char> bytes(
        static_cast<size_t>(std::min<uint64_t>(kChunk, offset - from)));
    Checksum first;
    uint64_t words = kFnvBasis;
    for (uint64_t at = from; at < offset; at += kChunk) {
        const size_t count = static_cast<size_t>(std::min<uint64_t>(kChunk, offset - at));
        if (!ReadFully(photo, at, bytes.data(), count)) {
            return false;
        }
        first.Add(bytes.data(), whole ? 0 : count);
        words = whole ? HashWords(words, bytes.data(), count) : words;
    }
    *hash = whole ? words : first.value();
    return true;
}

bool EndsWith(const std::string& s, const std::string& suffix) {
    return s.size() > suffix.size() &&
           s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::vector<std::string> JournalFiles(const std::string& folder) {
    std::vector<std::string> names;
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) {
        return names;
    }
    while (const dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (EndsWith(name, kSuffix) || EndsWith(name, std::string(kSuffix) + kUnfinished)) {
            names.push_back(name);
        }
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

// Taken by a dump for its journal's whole life; recovery skips what it cannot take.
bool HeldByLiveDump(int fd) {
    return flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

enum class Replay { kDone, kStale, kFailed };

// The journal's photo, as long as it is the one the journal was made for: a length within the
// journal's range and the same bytes in front of the insertion point. Replayed under the photo's
// lock, so that no dump of another process writes it meanwhile.
Replay ReplayInto(const std::string& photoPath, const JournalHeader& h, const unsigned char* tail) {
    const ScopedFd photo(OpenRegularFile(photoPath.c_str(), O_RDWR | O_NOFOLLOW));
    if (photo.get() < 0) {
        return errno == ENOENT || errno == EINVAL || errno == ELOOP ? Replay::kStale
                                                                    : Replay::kFailed;
    }
    const int64_t length = FileLength(photo.get());
    if (!LockExclusive(photo.get()) || length < 0) {
        return Replay::kFailed;
    }
    if (static_cast<uint64_t>(length) < h.offset ||
        static_cast<uint64_t>(length) > h.offset + h.tailLength) {
        return Replay::kStale;
    }
    uint64_t prefix = 0;
    if (!PrefixHash(photo.get(), h.offset, h.wholePrefix, &prefix)) {
        return Replay::kFailed;
    }
    if (prefix != h.prefix) {
        return Replay::kStale;
    }
    return ApplyTail(photo.get(), h.offset, tail, static_cast<size_t>(h.tailLength))
               ? Replay::kDone
               : Replay::kFailed;
}

void RecoverJournal(const std::string& folder, const std::string& file,
                    const std::string& photoPath, Recovery* recovery) {
    const std::string path = folder + "/" + file;
    const ScopedFd journal(OpenRegularFile(path.c_str(), O_RDONLY | O_NOFOLLOW));
    if (journal.get() < 0 || HeldByLiveDump(journal.get())) {
        return;
    }
    // An empty journal, which only damage leaves, reads as a damaged one.
    const int64_t size = FileLength(journal.get());
    MallocBlock bytes(static_cast<size_t>(std::max<int64_t>(size, 1)));
    if (size < 0 || !bytes ||
        !ReadFully(journal.get(), 0, bytes.get(), static_cast<size_t>(size))) {
        ++recovery->kept;
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kRecovery,
                   "could not read the journal of %s; it is kept", photoPath.c_str());
        return;
    }
    JournalHeader header = {};
    size_t tailAt = 0;
    if (!Decode(bytes.get(), static_cast<size_t>(size), &header, &tailAt)) {
        UnlinkFile(path.c_str());
        ++recovery->discarded;
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kRecovery, "discarded a damaged journal of %s",
                   photoPath.c_str());
        return;
    }
    switch (ReplayInto(photoPath, header, bytes.get() + tailAt)) {
        case Replay::kDone:
            UnlinkFile(path.c_str());  // if it stays, replaying it again changes nothing
            ++recovery->completed;
            IQA_LOG_OP(ANDROID_LOG_INFO, kTagUpLoad, kRecovery, "completed the record in %s",
                       photoPath.c_str());
            return;
        case Replay::kStale:
            UnlinkFile(path.c_str());
            ++recovery->discarded;
            IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kRecovery,
                       "discarded the journal of %s: the photo is gone or was replaced",
                       photoPath.c_str());
            return;
        case Replay::kFailed:
            ++recovery->kept;
            IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kRecovery,
                       "could not complete the record in %s; the journal is kept",
                       photoPath.c_str());
            return;
    }
}

// A journal that never got its final name: the photo was not touched for it. Discarded under the
// photo's lock, which a live dump holds from before it creates its journal until after its
// commit: the journal is then never one a dump has made but not yet locked.
void DiscardUnfinished(const std::string& folder, const std::string& file,
                       const std::string& photoPath, Recovery* recovery) {
    const ScopedFd photo(OpenRegularFile(photoPath.c_str(), O_RDONLY | O_NOFOLLOW));
    if (photo.get() >= 0 && !LockExclusive(photo.get())) {
        return;
    }
    const std::string path = folder + "/" + file;
    const ScopedFd journal(OpenRegularFile(path.c_str(), O_RDONLY | O_NOFOLLOW));
    if (journal.get() < 0 || HeldByLiveDump(journal.get())) {
        return;
    }
    UnlinkFile(path.c_str());
    ++recovery->discarded;
    IQA_LOG_OP(ANDROID_LOG_INFO, kTagUpLoad, kRecovery,
               "discarded an unfinished journal of %s; the photo was not changed",
               photoPath.c_str());
}

}  // namespace

std::string JournalFolder(const std::string& photoFolder) {
    // Journals sit in the library's own folder beside the photos.
    return photoFolder + "/" + kBackupFolderName;
}

bool IdentifyPhoto(int photo, JournalHeader* header) {
    header->wholePrefix = true;
    return PrefixHash(photo, header->offset, true, &header->prefix);
}

Journal::Journal(const std::string& photoFolder, const std::string& photoName)
    : photoFolder_(photoFolder),
      folder_(JournalFolder(photoFolder)),
      path_(folder_ + "/" + photoName + kSuffix) {}

Journal::~Journal() {
    CloseFile(fd_);
}

bool Journal::Write(const JournalHeader& header, const unsigned char* tail) {
    if (!WithinFileSizeLimit(kHeaderBytes + header.tailLength + kChecksumBytes)) {
        errno = EFBIG;
        return false;
    }
    // A folder made now is kept by a power cut only once its own folder is synced.
    bool made = false;
    if (!MakeFolder(folder_.c_str(), kBackupFolderMode, &made) ||
        (made && !SyncFolder(photoFolder_.c_str()))) {
        return false;
    }
    const std::string unfinished = path_ + kUnfinished;
    fd_ = CreateFile(unfinished.c_str());
    if (fd_ < 0) {
        return false;
    }
    flock(fd_, LOCK_EX);  // released when the dump closes it, or dies
    unsigned char head[kHeaderBytes];
    Encode(header, head);
    Checksum sum;
    sum.Add(head, sizeof(head));
    sum.Add(tail, static_cast<size_t>(header.tailLength));
    unsigned char end[kChecksumBytes];
    StoreLE64(end, sum.value());
    const uint64_t endAt = kHeaderBytes + header.tailLength;
    if (!WriteFully(fd_, 0, head, sizeof(head)) ||
        !WriteFully(fd_, kHeaderBytes, tail, static_cast<size_t>(header.tailLength)) ||
        !WriteFully(fd_, endAt, end, sizeof(end)) || !SyncFile(fd_) ||
        !RenameFile(unfinished.c_str(), path_.c_str())) {
        const int error = errno;
        UnlinkFile(unfinished.c_str());
        errno = error;
        return false;
    }
    if (SyncFolder(folder_.c_str())) {
        return true;
    }
    // Without a durable journal a power cut could tear the photo: take the journal back. If even
    // that fails, it stands, and the dump goes on under its protection.
    const int error = errno;
    if (UnlinkFile(path_.c_str())) {
        errno = error;
        return false;
    }
    return true;
}

bool Journal::Remove() {
    return UnlinkFile(path_.c_str());
}

bool WithinFileSizeLimit(uint64_t length) {
    struct rlimit limit = {};
    return getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
           length <= static_cast<uint64_t>(limit.rlim_cur);
}

bool ApplyTail(int photo, uint64_t offset, const unsigned char* tail, size_t length) {
    if (!WithinFileSizeLimit(offset + length)) {
        errno = EFBIG;
        return false;
    }
    return WriteFully(photo, offset, tail, length) && SyncFile(photo);
}

Recovery RecoverDumps(const std::string& photoFolder) {
    Recovery recovery;
    const std::string folder = JournalFolder(photoFolder);
    for (const std::string& file : JournalFiles(folder)) {
        const bool unfinished = EndsWith(file, kUnfinished);
        const size_t suffix = sizeof(kSuffix) - 1 + (unfinished ? sizeof(kUnfinished) - 1 : 0);
        const std::string photoPath = photoFolder + "/" + file.substr(0, file.size() - suffix);
        if (unfinished) {
            DiscardUnfinished(folder, file, photoPath, &recovery);
        } else {
            RecoverJournal(folder, file, photoPath, &recovery);
        }
    }
    return recovery;
}

std::string PendingJournal(const std::string& photoFolder, const std::string& photoName) {
    const std::string path = JournalFolder(photoFolder) + "/" + photoName + kSuffix;
    for (const std::string& journal : {path, path + kUnfinished}) {
        struct stat status = {};
        if (lstat(journal.c_str(), &status) == 0) {
            return journal;
        }
    }
    return "";
}

}  // namespace IQA
