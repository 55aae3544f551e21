// The roll-forward journal that makes a dump crash-safe. Before the first byte of a photo
// changes, the photo's whole new tail (the new record and the old tail behind it) is written to
// "<photo>.iqajournal" in the library's folder beside the photo, with a checksum, and made durable
// together with its folder. Its removal, after the photo's own write is durable, is the commit
// point. A journal found later is replayed: the photo then holds exactly the new record, whatever
// instant a crash cut the dump at; replaying twice gives the same file.
#ifndef IQA_UPLOAD_DUMP_JOURNAL_H
#define IQA_UPLOAD_DUMP_JOURNAL_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace IQA {

// What a journal holds besides the new tail: enough to tell that the photo it finds is still the
// one the journal was made for, by what the photo holds, wherever the camera root was copied,
// restored or mounted since: its name (the journal's), a length within the journal's range, and
// the bytes in front of the insertion point, which no dump ever writes.
struct JournalHeader {
    uint64_t oldLength;  // the photo's length before the dump
    uint64_t offset;     // where the new tail starts; the bytes before it never change
    uint64_t prefix;     // hash of the bytes in front of offset
    uint64_t tailLength;
    // False for a journal of the first format, whose `prefix` covers only the (up to) 4 KiB in
    // front of offset.
    bool wholePrefix = true;
};

// The folder that holds the journals of the photos in photoFolder (the backup folder's name).
std::string JournalFolder(const std::string& photoFolder);

// Fills header->prefix from the open photo; false if it cannot be read.
bool IdentifyPhoto(int photo, JournalHeader* header);

// One dump's journal. It lives while the dump does; a live dump's journal is locked, so that a
// recovery running elsewhere at the same time leaves it alone.
class Journal {
  public:
    Journal(const std::string& photoFolder, const std::string& photoName);
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // Writes and syncs the journal under a temporary name, renames it and syncs the folder.
    // True when the journal stands under its final name; false (errno set) when it does not, in
    // which case nothing of it is left behind that recovery would replay.
    bool Write(const JournalHeader& header, const unsigned char* tail);
    // The commit point. False leaves a journal whose replay changes nothing.
    bool Remove();

  private:
    std::string photoFolder_;
    std::string folder_;
    std::string path_;
    int fd_ = -1;
};

// Writes tail at offset and makes it durable; false (errno set) on any failure. Refuses with
// EFBIG a length beyond the process's file size limit, which would otherwise raise SIGXFSZ.
bool ApplyTail(int photo, uint64_t offset, const unsigned char* tail, size_t length);

// True when length bytes fit under the process's file size limit.
bool WithinFileSizeLimit(uint64_t length);

struct Recovery {
    int completed = 0;  // photos that now hold their new record
    int discarded = 0;  // journals of photos the dump had not changed, or that are gone
    int kept = 0;       // journals that could not be replayed now; tried again next time
};

// Replays or discards every journal of the photos in photoFolder, with one log line per journal
// naming the photo and what was done. Journals of live dumps are left alone.
Recovery RecoverDumps(const std::string& photoFolder);

// The path of the photo's journal that still waits to be replayed (or discarded, when it was
// never finished), or "" when there is none.
std::string PendingJournal(const std::string& photoFolder, const std::string& photoName);

}  // namespace IQA

#endif  // IQA_UPLOAD_DUMP_JOURNAL_H
