#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace koruone {

/// A text file that is written from start to end. The first failure is kept; later writes do nothing.
class OutputFile {
public:
    /// Replaces the file. False: it cannot be made; error() says why.
    bool open(const std::filesystem::path& path);
    void write(std::string_view text);
    /// Hands everything to the disk. False: something was lost; error() says why.
    bool close();
    [[nodiscard]] bool isOpen() const { return file != nullptr; }
    [[nodiscard]] bool failed() const { return !reason.empty(); }
    /// "cannot write PATH: reason", empty while all is well.
    [[nodiscard]] const std::string& error() const { return reason; }

private:
    struct Closer {
        void operator()(std::FILE* open) const { std::fclose(open); }
    };
    void fail(int number);

    std::filesystem::path target;
    std::unique_ptr<std::FILE, Closer> file;
    std::string reason;
};

/// Says, as the end of a sentence about `path`, that a file is there and is not to be replaced; empty when all is well.
/// A device or a pipe may always be written to.
std::string whyKept(const std::filesystem::path& path, bool overwrite);

/// Makes the directory and its parents where missing. False: it is not there; `error` says why.
bool makeDirectory(const std::filesystem::path& directory, std::string& error);

}  // namespace koruone
