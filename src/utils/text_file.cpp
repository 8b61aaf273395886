#include "utils/text_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

namespace oru {
namespace {

class OpenFile {
public:
    // O_NONBLOCK: a pipe without a writer would hold the reader for ever.
    explicit OpenFile(const std::string& path) : descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~OpenFile() {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    int get() const { return descriptor; }

private:
    int descriptor;
};

/// A new file beside its final place; gone with this object unless it was kept.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& path)
        : name(path + ".XXXXXX"), descriptor(::mkostemp(name.data(), O_CLOEXEC)) {}
    ~TemporaryFile() {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
        if (!kept && created) {
            ::unlink(name.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    bool isCreated() const { return created; }

    bool write(const std::string& text) {
        std::size_t written = 0;
        while (written < text.size()) {
            const ssize_t step = ::write(descriptor, text.data() + written, text.size() - written);
            if (step > 0) {
                written += static_cast<std::size_t>(step);
            } else if (step == 0 || errno != EINTR) {
                return false;
            }
        }
        // mkostemp gives 0600; a calibration is read by every user of the camera.
        return ::fchmod(descriptor, 0644) == 0 && ::fsync(descriptor) == 0;
    }

    bool renameTo(const std::string& path) {
        const int closing = descriptor;
        descriptor = -1;
        kept = ::close(closing) == 0 && std::rename(name.c_str(), path.c_str()) == 0;
        return kept;
    }

private:
    std::string name;
    int descriptor;
    bool created = descriptor >= 0;
    bool kept = false;
};

}  // namespace

PlainText readPlainText(const std::string& path, std::size_t limitBytes) {
    const OpenFile file(path);
    struct stat facts = {};
    if (file.get() < 0 || ::fstat(file.get(), &facts) != 0) {
        return {{}, std::generic_category().message(errno)};
    }
    if (!S_ISREG(facts.st_mode) || facts.st_size > static_cast<off_t>(limitBytes)) {
        return {{}, "it is no plain file or too large"};
    }
    PlainText result;
    result.text.resize(static_cast<std::size_t>(facts.st_size));
    if (::pread(file.get(), result.text.data(), result.text.size(), 0) != facts.st_size) {
        return {{}, "it could not be read whole"};
    }
    return result;
}

std::string placeFile(const std::string& path, const std::string& text) {
    TemporaryFile file(path);
    if (!file.isCreated() || !file.write(text) || !file.renameTo(path)) {
        return std::generic_category().message(errno);
    }
    return {};
}

}  // namespace oru
