#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace koruone {

/// One line that is rewritten on standard error, only where that is a terminal.
class Progress {
public:
    explicit Progress(std::string name);
    /// Clears the line.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Shows "label text", at most a few times a second.
    void show(std::string_view text);
    /// Takes the line away until the next show, so that something else can be printed.
    void clear();

private:
    std::string label;
    bool terminal;
    bool shown = false;
    std::chrono::steady_clock::time_point nextRefresh;
};

}  // namespace koruone
