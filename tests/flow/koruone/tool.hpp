#pragma once

#include <sys/types.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "doubles/TemporaryDirectory.hpp"

namespace oru {

using doubles::TemporaryDirectory;

/// How a run of the tool ended and what it wrote.
struct ToolResult {
    int status = -1;  ///< exit code, or 1000 plus the signal that ended it
    std::string output;
    std::string errors;

    /// The JSON value on the last line of the output; null when there is none.
    [[nodiscard]] nlohmann::json json() const;
};

using Arguments = std::vector<std::string>;

/// The built koruone in a home directory of its own, quiet but for its complaints.
class Tool {
public:
    Tool();

    /// Runs to the end; killed after two minutes.
    ToolResult run(const Arguments& arguments);
    /// Started, and going on beside the test.
    pid_t start(const Arguments& arguments);
    void signal(int number) const;
    ToolResult wait();

    /// Where the tool keeps calibration files here.
    [[nodiscard]] std::string settings() const { return home.path("data/koru/settings/"); }

    /// Added to the tool's environment.
    std::map<std::string, std::string> environment;
    doubles::TemporaryDirectory home;
    /// An ordinary user's rights, also where the tests run as root.
    bool unprivileged = false;
    /// No file may grow beyond so many bytes; 0: any size.
    uint64_t largestFile = 0;
    /// Standard error is a terminal of so many columns; 0: a file.
    unsigned short terminalColumns = 0;
    /// Standard output and input are that terminal as well; all of it comes in the result's errors.
    bool allOnTerminal = false;
    /// Where standard output goes instead of into the result.
    std::string outputFile;

private:
    void limit() const;
    void collectTerminal();

    pid_t process = -1;
    int terminal = -1;
    std::string shown;  // what came over the terminal
};

/// Records a short file of the small image; its path.
std::string recordShort(Tool& tool, const std::string& compression);
/// How many frames a recording plays.
uint64_t framesPlayed(Tool& tool, const std::string& path);
void shorten(const std::string& path, uint64_t bytes);

/// Waits until there is such a file; false after thirty seconds.
[[nodiscard]] bool waitForFile(const std::string& path);

/// The rows of a CSV file, the header first.
std::vector<std::vector<std::string>> readCsv(const std::string& path);

/// A decoded PNG file; empty when it cannot be read.
struct DecodedPng {
    unsigned width = 0;
    unsigned height = 0;
    bool gray = false;
    std::vector<unsigned char> pixels;  ///< one byte each for gray, else red, green, blue

    [[nodiscard]] double mean() const;
    /// Standard deviation of all values; 0 for a flat image.
    [[nodiscard]] double spread() const;
};
DecodedPng readPng(const std::string& path);

}  // namespace oru
