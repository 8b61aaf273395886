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

    /// Shows "label text", at most a few times a second, cut to the width of the terminal.
    void show(std::string_view text);
    /// The share that is done, and the time so far of the time that all of it takes at this pace, as in
    /// "label 45 %, 0:12 of 0:27"; `text` follows where there is room.
    void show(uint64_t done, uint64_t total, std::string_view text = {});
    /// Takes the line away until the next show, so that something else can be printed.
    void clear();

private:
    std::string label;
    bool terminal;
    bool shown = false;
    std::chrono::steady_clock::time_point began;
    std::chrono::steady_clock::time_point nextRefresh;
};

/// "0:12", "1:02:03".
std::string timeText(double seconds);

}  // namespace koruone
