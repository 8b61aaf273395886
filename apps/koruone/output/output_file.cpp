#include "koruone/output/output_file.hpp"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>

namespace koruone {

bool OutputFile::open(const std::filesystem::path& path) {
    target = path;
    file.reset(std::fopen(path.c_str(), "w"));
    if (file == nullptr) {
        fail(errno);
    }
    return isOpen();
}

void OutputFile::write(std::string_view text) {
    if (isOpen() && !failed() && std::fwrite(text.data(), 1, text.size(), file.get()) != text.size()) {
        fail(errno);
    }
}

bool OutputFile::close() {
    if (isOpen() && std::fclose(file.release()) != 0 && !failed()) {
        fail(errno);
    }
    return !failed();
}

void OutputFile::fail(int number) {
    reason = fmt::format("cannot write {}: {}", target.string(), std::strerror(number));
}

std::string whyKept(const std::filesystem::path& path, bool overwrite) {
    std::error_code error;
    if (path.empty() || overwrite || !std::filesystem::is_regular_file(path, error)) {
        return "";
    }
    return path.string() + " exists; use --overwrite to replace it";
}

bool makeDirectory(const std::filesystem::path& directory, std::string& error) {
    std::error_code code;
    std::filesystem::create_directories(directory, code);
    std::error_code absent;
    if (!std::filesystem::is_directory(directory, absent)) {
        error = fmt::format("cannot make the directory {}: {}", directory.string(),
                            code ? code.message() : "something else has that name");
        return false;
    }
    return true;
}

}  // namespace koruone
