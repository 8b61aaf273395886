#include "calibration/ConfManager.hpp"

#include <SimpleIni.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "calibration/numbers.hpp"

namespace oru {
namespace {

constexpr off_t kSizeLimitBytes = off_t{1} << 20;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, CloseFile>;

/// Only a plain file of a sound size: a directory, a pipe or a device could hang or exhaust the reader.
FileHandle openForReading(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat facts = {};
    const bool isSound = descriptor >= 0 && ::fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode) &&
                         facts.st_size <= kSizeLimitBytes;
    FileHandle file(isSound ? ::fdopen(descriptor, "rb") : nullptr);
    if (!file && descriptor >= 0) {
        ::close(descriptor);
    }
    return file;
}

}  // namespace

struct ConfManager::Document {
    CSimpleIniTempl<char, SI_GenericNoCase<char>, SI_ConvertA<char>> ini{false, false, false};
};

ConfManager::ConfManager() : ini(std::make_unique<Document>()) {}

ConfManager::~ConfManager() {
    if (!is_open || !write_back) {
        return;
    }
    try {
        if (const FileHandle file{std::fopen(path.c_str(), "wb")}; file) {
            (void)ini->ini.SaveFile(file.get(), true);
        }
    } catch (...) {
        return;
    }
}

void ConfManager::load(const std::string& candidate) {
    path = candidate;
    if (ini->ini.IsEmpty()) {
        ini->ini.SetUnicode();
    }
    const FileHandle file = openForReading(path);
    is_open = file && ini->ini.LoadFile(file.get()) >= 0;
}

float ConfManager::getValue(std::string key, float default_value) const {
    if (!is_open) {
        return default_value;
    }
    const std::string section = key.substr(0, key.find(':'));
    const auto lastColon = key.rfind(':');
    const std::string name = lastColon == std::string::npos ? key : key.substr(lastColon + 1);
    const std::string fallback = fmt::format("{:f}", default_value);
    return static_cast<float>(parseNumber(ini->ini.GetValue(section.c_str(), name.c_str(), fallback.c_str())));
}

}  // namespace oru
