#pragma once

#include <stdlib.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

namespace oru::doubles {

/// A folder of its own for one test; gone afterwards.
class TemporaryDirectory {
public:
    TemporaryDirectory() : folder(make()) {}
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    /// The path with "/" at its end, as a settings path wants it.
    [[nodiscard]] std::string prefix() const { return folder.string() + "/"; }
    [[nodiscard]] std::string path(const std::string& name) const { return (folder / name).string(); }

    /// Writes a file, making its folders; returns its path.
    std::string write(const std::string& name, const std::string& text) const {
        std::filesystem::create_directories((folder / name).parent_path());
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    [[nodiscard]] std::string read(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /// The names in the folder.
    [[nodiscard]] std::vector<std::string> list() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

private:
    static std::filesystem::path make() {
        std::string pattern = (std::filesystem::temp_directory_path() / "oru.XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), pattern);
        }
        return pattern;
    }

    std::filesystem::path folder;
};

}  // namespace oru::doubles
