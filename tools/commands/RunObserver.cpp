// Log-stream parsing for iqa run.
#include "tools/commands/RunObserver.h"

#include <android/log.h>

#include <algorithm>
#include <cstdio>

namespace iqa_tools {

namespace {

bool StartsWith(const std::string& s, const char* prefix) {
    return s.rfind(prefix, 0) == 0;
}

// Errors that only repeat what an earlier, more specific line said.
bool IsFollowUpError(const LogLine& line) {
    return line.operation == "GetSsim" || line.operation == "CopyThumbs" ||
           StartsWith(line.text, "Decoder failed");
}

}  // namespace

void RunObserver::BeginBatch(const std::vector<std::string>& names) {
    std::lock_guard<std::mutex> lock(mutex_);
    order_.assign(names.rbegin(), names.rend());
    current_ = registered_ = finished_ = 0;
}

void RunObserver::OnLog(int priority, const char* tag, const char* message) {
    if (echo_) {
        fprintf(stderr, "%c %s: %s\n", priority >= ANDROID_LOG_ERROR ? 'E' : 'I', tag, message);
    }
    LogLine line;
    if (!ParseLogLine(message, &line)) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++progress_;
        if (line.operation == "RegisterTask" && StartsWith(line.text, "Task registered")) {
            ++registered_;
        } else if (line.operation == "CopyThumbs" && line.text == "begin back up") {
            current_ = std::min(current_ + 1, order_.size());
        } else if (current_ > 0) {
            OnPhotoLine(line, priority, outcomes_[order_[current_ - 1]]);
        }
    }
    changed_.notify_all();
}

void RunObserver::OnPhotoLine(const LogLine& line, int priority, PhotoOutcome& photo) {
    int a = 0, b = 0;
    double ssim = 0.0;
    if (line.operation == "ThumbnailDecoder" &&
        sscanf(line.text.c_str(), "output width %d, height %d", &a, &b) == 2) {
        photo.thumbWidth = a, photo.thumbHeight = b;
    } else if (line.operation == "JpegDecoder" &&
               sscanf(line.text.c_str(), "output width %d, height %d", &a, &b) == 2) {
        photo.photoWidth = a, photo.photoHeight = b;
    } else if (line.operation == "ProcessImage" &&
               sscanf(line.text.c_str(), "ssim result: %lf", &ssim) == 1) {
        photo.scored = true, photo.ssim = ssim;
    } else if (line.operation == "SaveCustomBuffer") {
        if (StartsWith(line.text, "save custombuffer")) {
            photo.dumpSaved = true;
        } else if (priority >= ANDROID_LOG_ERROR && photo.dumpError.empty()) {
            photo.dumpError = line.text;
        }
    } else if (line.operation == "IqaProc") {
        if (line.text.find("with high similarity") != std::string::npos) {
            photo.verdict = "high";
        } else if (line.text.find("with low similarity") != std::string::npos) {
            photo.verdict = "low";
        } else if (StartsWith(line.text, "interrupt")) {
            photo.verdict = "interrupted";
        }
        if (!photo.verdict.empty()) {
            Finish(photo);
        }
    } else if (line.operation == "GetSsim" && StartsWith(line.text, "GetSsim error")) {
        photo.verdict = "no result";
    } else if (line.operation == "RemoveFile" && photo.verdict == "no result") {
        Finish(photo);  // the last line of a photo without a result
    } else if (priority >= ANDROID_LOG_ERROR && photo.reason.empty() && !IsFollowUpError(line)) {
        photo.reason = line.operation + ": " + line.text;
    }
}

void RunObserver::Finish(PhotoOutcome& photo) {
    if (photo.done) {
        return;
    }
    photo.done = true;
    ++finished_;
    ++total_;
    progress_bar_->Show(total_, order_[current_ - 1]);
}

bool RunObserver::WaitFor(std::unique_lock<std::mutex>& lock, std::chrono::seconds limit,
                          bool (RunObserver::*condition)() const) {
    while (!(this->*condition)()) {
        const size_t seen = progress_;
        if (!changed_.wait_for(lock, limit, [&] { return progress_ != seen; })) {
            return false;  // nothing logged for the whole limit
        }
    }
    return true;
}

bool RunObserver::WaitRegistered(std::chrono::seconds limit) {
    std::unique_lock<std::mutex> lock(mutex_);
    return WaitFor(lock, limit, &RunObserver::AllRegistered);
}

bool RunObserver::WaitBatchDone(std::chrono::seconds limit) {
    std::unique_lock<std::mutex> lock(mutex_);
    return WaitFor(lock, limit, &RunObserver::AllDone);
}

std::map<std::string, PhotoOutcome> RunObserver::Outcomes() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return outcomes_;
}

}  // namespace iqa_tools
