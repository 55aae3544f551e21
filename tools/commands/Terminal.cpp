// Table layout and the progress bar.
#include "tools/commands/Terminal.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace iqa_tools {

namespace {
constexpr size_t kBarWidth = 24;
}

std::string FormatTable(const std::vector<std::vector<std::string>>& rows) {
    std::vector<size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t c = 0; c < row.size(); ++c) {
            widths[c] = std::max(widths[c], row[c].size());
        }
    }
    std::string out;
    for (const auto& row : rows) {
        std::string line;
        for (size_t c = 0; c < row.size(); ++c) {
            line += row[c];
            if (c + 1 < row.size()) {
                line += std::string(widths[c] - row[c].size() + 2, ' ');
            }
        }
        out += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return out;
}

Progress::Progress(size_t total) : total_(total), terminal_(isatty(STDERR_FILENO) == 1) {}

void Progress::Clear() {
    if (drawn_) {
        fputs("\r\033[K", stderr);
        drawn_ = false;
    }
}

void Progress::Show(size_t done, const std::string& current) {
    if (!terminal_ || total_ == 0) {
        return;
    }
    const size_t filled = kBarWidth * std::min(done, total_) / total_;
    fprintf(stderr, "\r\033[K[%s%s] %zu/%zu %s", std::string(filled, '#').c_str(),
            std::string(kBarWidth - filled, '.').c_str(), done, total_, current.c_str());
    fflush(stderr);
    drawn_ = true;
}

}  // namespace iqa_tools
