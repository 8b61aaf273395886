#include "compose/settings_directory.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "calibration/readers.hpp"
#include "oru/calibration.hpp"
#include "utils/text_file.hpp"

namespace oru {
namespace {

constexpr const char* kSettingsBelowData = "/koru/settings/";
constexpr int kMostFiles = 64;

/// The directory of the files that a prefix names.
std::filesystem::path directoryOf(const std::string& prefix) {
    const std::string expanded = expandHome(prefix);
    const std::filesystem::path path(expanded);
    return path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
}

}  // namespace

std::string userSettingsDirectory() {
    const char* data = std::getenv("XDG_DATA_HOME");
    const char* home = std::getenv("HOME");
    std::string directory;
    if (data != nullptr && data[0] == '/') {
        directory = data;
    } else if (home != nullptr && home[0] != '\0') {
        directory = std::string(home) + "/.local/share";
    } else {
        return {};
    }
    directory += kSettingsBelowData;
    std::error_code ignored;  // a directory that cannot be made shows when something is to be stored there
    std::filesystem::create_directories(directory, ignored);
    return directory;
}

std::string asPrefix(const std::string& settingsPath) {
    std::error_code missing;
    const bool lacksSlash = !settingsPath.empty() && settingsPath.back() != '/';
    return lacksSlash && std::filesystem::is_directory(expandHome(settingsPath), missing) ? settingsPath + "/"
                                                                                          : settingsPath;
}

std::string storingDefect(const std::string& prefix) {
    if (prefix.empty()) {
        return "this user has no home";
    }
    const std::filesystem::path directory = directoryOf(prefix);
    if (::access((directory / ".").c_str(), W_OK | X_OK) != 0) {
        return std::generic_category().message(errno);
    }
    return {};
}

void copyCalibrations(const std::string& prefix, const std::string& directory) {
    if (prefix.empty()) {
        return;
    }
    const std::string start = std::filesystem::path(expandHome(prefix)).filename().string() + "SN";
    std::error_code error;
    int copied = 0;
    for (std::filesystem::directory_iterator entry(directoryOf(prefix), error), end;
         !error && entry != end && copied < kMostFiles; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name.starts_with(start) && name.ends_with(".conf")) {
            const PlainText file = readPlainText(entry->path().string(), kCalibrationTextLimitBytes);
            const std::string target = directory + name.substr(start.size() - 2);
            copied += file.defect.empty() && placeFile(target, file.text).empty() ? 1 : 0;
        }
    }
}

}  // namespace oru
