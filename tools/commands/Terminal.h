// Console output for people: tables whose columns fit their content, and a progress bar on
// standard error that is drawn only when standard error is a terminal.
#ifndef IQA_TOOLS_COMMANDS_TERMINAL_H
#define IQA_TOOLS_COMMANDS_TERMINAL_H

#include <cstddef>
#include <string>
#include <vector>

namespace iqa_tools {

// The rows (the first one the header) with every column as wide as its widest cell, two blanks
// between columns and no blanks at the ends of lines.
std::string FormatTable(const std::vector<std::vector<std::string>>& rows);

class Progress {
  public:
    explicit Progress(size_t total);
    ~Progress() { Clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // "[#####.....] done/total name" on one line, redrawn in place.
    void Show(size_t done, const std::string& current);
    // Removes the bar, before anything else is printed.
    void Clear();

  private:
    size_t total_;
    bool drawn_ = false;
    bool terminal_;
};

}  // namespace iqa_tools

#endif  // IQA_TOOLS_COMMANDS_TERMINAL_H
