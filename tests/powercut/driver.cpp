// The guest side of the power-cut harness (scripts/powercut.sh): a camera host on a real kernel
// and a real file system. It reads one command a line on standard input (the serial console) and
// answers with lines that start "@@ ", so that the harness tells them from the kernel's:
//   MAKE seed          a camera root of photos (D0.., dumped into directly) and photos with
//                      disagreeing thumbnails (B0.., evaluated by batch runs), all made durable
//   RECOVER            a manager starts its worker (which replays journals), then iqa recover
//   CHECK token...     each photo against what the harness knows was committed (see Check)
//   SEED seed          the camera root's seed, after a boot
//   WORK seed op       dumps and batch runs for ever, op numbers from `op` on, each announced
//                      ("BEGIN op photo") and finished ("END op photo <its dump's last line>");
//                      until the harness cuts the power
//   CONTROL seed op    the same, but each dump rewrites the photo in place with no journal, as a
//                      writer of image metadata does: the control that shows the check sees tears
// Every line the library logs is passed on as "LOG <line>".
#include <android/log.h>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "IqaTaskManager.h"
#include "IqaUpLoad.h"
#include "common/CameraLayout.h"
#include "common/FileCalls.h"
#include "tests/reference/ReferenceDump.h"
#include "tests/reference/ReferenceKernels.h"
#include "tools/files/CameraFiles.h"
#include "tools/files/SceneGenerator.h"
#include "upload/DumpJournal.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr int kDumpPhotos = 3, kBatchPhotos = 2;
constexpr int kWidth = 320, kHeight = 240, kThumbWidth = 80, kThumbHeight = 60;
constexpr size_t kLargestBuffer = 48 * 1024;  // several write blocks, and a journal to match
const Bytes kCameraRecord(40, 7), kOther(9, 8);

std::string gLastDumpLine;  // the dump's last line, for END

// Returns once the line has left the machine: a serial console sends what it is given later, and
// whatever the driver or the library does after a line must not reach the disk before the
// harness can have read the line.
void Say(const std::string& line) {
    printf("@@ %s\n", line.c_str());
    fflush(stdout);
    tcdrain(STDOUT_FILENO);  // fails harmlessly where standard output is no terminal
}

void PassOn(const struct __android_logger_data*, const char* message) {
    std::string line = message;
    line.erase(line.find_last_not_of('\n') + 1);  // some lines end in their own newline
    if (line.rfind("[SaveCustomBuffer:", 0) == 0) {
        gLastDumpLine = line.substr(line.find("]:") + 2);
    }
    Say("LOG " + line);
}

std::string Photo(const std::string& name) {
    return std::string(IQA::kCameraFolder) + "/" + name + IQA::kPhotoSuffix;
}

uint32_t SeedOf(uint32_t seed, const std::string& name) {
    uint32_t s = seed;
    for (char c : name) {
        s = s * 131 + static_cast<unsigned char>(c);
    }
    return s;
}

Bytes Original(uint32_t seed, const std::string& name) {
    Bytes photo = iqa_tools::EncodeJpeg(iqa_tools::RenderScene(kWidth, kHeight, SeedOf(seed, name)),
                                        kWidth, kHeight, 3, 88);
    const Bytes trailer = iqa_tools::Trailer({{"CAMINFO", kCameraRecord}}, kOther);
    photo.insert(photo.end(), trailer.begin(), trailer.end());
    return photo;
}

// Another frame than the photo's, so that every evaluation is of low similarity and dumps.
Bytes ThumbnailRgb(uint32_t seed, const std::string& name) {
    return iqa_ref::Reduced(iqa_tools::RenderScene(kWidth, kHeight, SeedOf(seed, name) ^ 0x5555),
                            kWidth, kThumbWidth, kThumbHeight);
}

// The record a direct dump of op `op` writes, and the one every evaluation of a B photo writes.
struct Record {
    Bytes custom;
    IQA::ImageDumpExpand descriptor;
};

Record DumpRecord(uint32_t seed, long op) {
    std::mt19937 rng(seed * 7919 + static_cast<uint32_t>(op));
    Bytes custom(1 + rng() % kLargestBuffer);
    for (unsigned char& b : custom) {
        b = static_cast<unsigned char>(rng());
    }
    const int32_t size = static_cast<int32_t>(custom.size());
    return {custom, {size, 1, size, size, 1, "Iqa_comparessim", {}}};
}

Record BatchRecord(uint32_t seed, const std::string& name) {
    constexpr int w = kThumbWidth / 4, h = kThumbHeight / 4;
    const Bytes reduced = iqa_ref::Reduced(ThumbnailRgb(seed, name), kThumbWidth, w, h);
    const Bytes nv12 = iqa_ref::Nv12(reduced.data(), w, h);
    const int32_t size = static_cast<int32_t>(nv12.size());
    return {nv12, {w, h, w, size, 1, "Iqa_comparessim", {}}};
}

// Writes a file and makes it and its folder's entry durable.
bool WriteDurably(const std::string& path, const Bytes& bytes) {
    const IQA::ScopedFd fd(IQA::CreateFile((path + ".new").c_str()));
    const std::string folder = path.substr(0, path.rfind('/'));
    return fd.get() >= 0 && IQA::WriteFully(fd.get(), 0, bytes.data(), bytes.size()) &&
           IQA::SyncFile(fd.get()) && IQA::RenameFile((path + ".new").c_str(), path.c_str()) &&
           IQA::SyncFolder(folder.c_str());
}

std::string Name(char kind, int i) {
    return std::string(1, kind) + std::to_string(i);
}

// Makes every folder of `path` that is missing, each entry durable in its parent.
bool MakeFolders(const std::string& path) {
    for (size_t slash = 0; slash != std::string::npos;) {
        slash = path.find('/', slash + 1);
        const std::string folder = path.substr(0, slash);
        const size_t up = folder.rfind('/');
        const std::string parent = up == std::string::npos ? "." : folder.substr(0, up);
        if (!IQA::MakeFolder(folder.c_str(), 0775) || !IQA::SyncFolder(parent.c_str())) {
            return false;
        }
    }
    return true;
}

void Make(uint32_t seed) {
    bool made = MakeFolders(IQA::kCacheFolder);
    for (int i = 0; i < kDumpPhotos + kBatchPhotos; ++i) {
        const std::string name = i < kDumpPhotos ? Name('D', i) : Name('B', i - kDumpPhotos);
        made = made && WriteDurably(Photo(name), Original(seed, name));
    }
    Say(made ? "OK MAKE" : "ERR MAKE");
}

void Recover() {
    {
        IQA::IqaTaskManager manager;  // its worker replays the journals as it starts
        manager.AddRequest(Request{REQUEST_REGISTER_TASK, "nothing", false});
    }                                     // the destructor waits for the worker
    const char* iqa = getenv("IQA_CLI");  // the iqa program; on the guest's PATH otherwise
    const std::string command = std::string(iqa != nullptr ? iqa : "iqa") + " recover . 2>&1";
    FILE* recover = popen(command.c_str(), "r");
    char line[1024];
    while (recover != nullptr && fgets(line, sizeof(line), recover) != nullptr) {
        std::string text = line;
        text.erase(text.find_last_not_of('\n') + 1);
        Say("RECOVERED " + text);
    }
    Say(recover != nullptr && pclose(recover) == 0 ? "OK RECOVER" : "ERR RECOVER");
}

// The photo as it must be after `records`, each inserted in front of the camera's own record
// behind the ones before it.
Bytes WithRecords(Bytes photo, const std::vector<Record>& records) {
    size_t at = photo.size() - (kCameraRecord.size() + 12 + kOther.size() + 24);
    for (const Record& r : records) {
        photo = iqa_ref::WithRecord(photo, at, r.custom, r.descriptor);
        at += r.custom.size() + 132;
    }
    return photo;
}

// One token: name=op,op,...[?op][!]. The ops listed were committed; the one after "?" was under
// way at the cut and may or may not have gone in; "!" says the photo's thumbnail was made durable
// and not yet evaluated, so it must still be in the cache or the backup folder. Answers
// "HAS name n" (how many of the records it holds) or "TORN name", and "LOST name".
bool CheckPhoto(uint32_t seed, const std::string& token) {
    const std::string name = token.substr(0, token.find('='));
    std::string ops = token.substr(token.find('=') + 1);
    const bool thumbnail = !ops.empty() && ops.back() == '!';
    ops = thumbnail ? ops.substr(0, ops.size() - 1) : ops;
    const size_t mark = ops.find('?');
    std::vector<Record> records;
    std::stringstream list(ops.substr(0, mark));
    for (std::string op; std::getline(list, op, ',');) {
        records.push_back(name[0] == 'D' ? DumpRecord(seed, std::stol(op))
                                         : BatchRecord(seed, name));
    }
    Bytes actual;
    iqa_tools::ReadWholeFile(Photo(name), &actual);
    const Bytes original = Original(seed, name);
    bool whole = actual == WithRecords(original, records);
    size_t held = records.size();
    if (!whole && mark != std::string::npos) {
        const long op = std::stol(ops.substr(mark + 1));
        records.push_back(name[0] == 'D' ? DumpRecord(seed, op) : BatchRecord(seed, name));
        whole = actual == WithRecords(original, records);
        held = records.size();
    }
    Say(whole ? "HAS " + name + " " + std::to_string(held) : "TORN " + name);
    if (thumbnail) {
        const Bytes expected =
            iqa_tools::ThumbnailFile(kThumbWidth, kThumbHeight, ThumbnailRgb(seed, name));
        Bytes cached, backed;
        iqa_tools::ReadWholeFile(
            std::string(IQA::kCacheFolder) + "/" + name + IQA::kThumbnailSuffix, &cached);
        iqa_tools::ReadWholeFile(
            std::string(IQA::kBackupFolder) + "/" + name + IQA::kThumbnailSuffix, &backed);
        if (cached != expected && backed != expected) {
            for (const char* folder : {IQA::kCacheFolder, IQA::kBackupFolder}) {
                std::string names;
                for (const auto& e : std::filesystem::directory_iterator(folder)) {
                    names += " " + e.path().filename().string();
                }
                Say(std::string("HOLDS ") + folder + ":" + names);
            }
            Say("LOST " + name + ": the cache holds " + std::to_string(cached.size()) +
                " bytes of it, the backup folder " + std::to_string(backed.size()));
            return false;
        }
    }
    return whole;
}

void Check(uint32_t seed, std::istringstream& tokens) {
    int failed = 0;
    for (std::string token; tokens >> token;) {
        failed += !CheckPhoto(seed, token);
    }
    for (int i = 0; i < kDumpPhotos + kBatchPhotos; ++i) {
        const std::string name = i < kDumpPhotos ? Name('D', i) : Name('B', i - kDumpPhotos);
        const std::string journal =
            IQA::PendingJournal(IQA::kCameraFolder, name + IQA::kPhotoSuffix);
        if (!journal.empty()) {
            Say("JOURNAL " + journal);  // recovery ran: none may wait any more
            ++failed;
        }
    }
    Say("OK CHECK " + std::to_string(failed));
}

// The control's dump: the photo's new bytes written over it from the insertion point on, then
// synced, and the line a successful dump logs.
void DumpInPlace(const std::string& name, const Record& r) {
    Bytes photo;
    iqa_tools::ReadWholeFile(Photo(name), &photo);
    const size_t at = photo.size() - (kCameraRecord.size() + 12 + kOther.size() + 24);
    const Bytes updated = iqa_ref::WithRecord(photo, at, r.custom, r.descriptor);
    const IQA::ScopedFd fd(IQA::OpenRegularFile(Photo(name).c_str(), O_RDWR));
    if (fd.get() >= 0 && IQA::WriteFully(fd.get(), at, updated.data() + at, updated.size() - at) &&
        IQA::SyncFile(fd.get())) {
        gLastDumpLine = "save custombuffer in " + Photo(name);
    }
}

void DumpOp(uint32_t seed, long op, const std::string& name, bool inPlace) {
    Say("BEGIN " + std::to_string(op) + " " + name);
    Record r = DumpRecord(seed, op);
    gLastDumpLine.clear();
    if (inPlace) {
        DumpInPlace(name, r);
    } else {
        IQA::IqaUpLoad().SaveCustomBuffer(Photo(name), r.custom.data(), &r.descriptor);
    }
    Say("END " + std::to_string(op) + " " + name + " " + gLastDumpLine);
}

void BatchOp(uint32_t seed, long op, const std::string& name, IQA::IqaTaskManager& manager) {
    Say("BEGIN " + std::to_string(op) + " " + name);
    const std::string thumb = std::string(IQA::kCacheFolder) + "/" + name + IQA::kThumbnailSuffix;
    if (!WriteDurably(
            thumb, iqa_tools::ThumbnailFile(kThumbWidth, kThumbHeight, ThumbnailRgb(seed, name)))) {
        Say("END " + std::to_string(op) + " " + name + " cannot stock the thumbnail");
        return;
    }
    Say("STOCKED " + std::to_string(op) + " " + name);
    gLastDumpLine.clear();
    manager.RegisterTask(name);
    manager.BeginProcess();
    Say("END " + std::to_string(op) + " " + name + " " + gLastDumpLine);
}

// Records come from the camera root's seed, so that a later boot can check them; the choice of
// photos from the session's.
void Work(uint32_t seed, uint32_t session, long op, bool inPlace) {
    std::mt19937 rng(session);
    IQA::IqaTaskManager manager;
    for (;; ++op) {
        const unsigned pick = rng() % (kDumpPhotos + kBatchPhotos);
        if (pick < kDumpPhotos) {
            DumpOp(seed, op, Name('D', static_cast<int>(pick)), inPlace);
        } else {
            BatchOp(seed, op, Name('B', static_cast<int>(pick - kDumpPhotos)), manager);
        }
    }
}

}  // namespace

int main() {
    __android_log_set_logger(PassOn);
    uint32_t seed = 0;
    Say("READY");
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        std::string command;
        words >> command;
        if (command == "MAKE" && words >> seed) {
            Make(seed);
        } else if (command == "SEED" && words >> seed) {
            Say("OK SEED");
        } else if (command == "RECOVER") {
            Recover();
        } else if (command == "CHECK") {
            Check(seed, words);
        } else if (command == "WORK" || command == "CONTROL") {
            uint32_t session = 0;
            long op = 0;
            words >> session >> op;
            Work(seed, session, op, command == "CONTROL");
        } else if (!command.empty()) {
            Say("ERR unknown command " + command);
        }
    }
    return 0;
}
