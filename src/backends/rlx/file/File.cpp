#include "backends/rlx/file/File.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace oru::rlx {

namespace {

int openRetrying(const char* path, int flags) {
    int descriptor = -1;
    do {
        descriptor = ::open(path, flags | O_CLOEXEC | O_NONBLOCK, 0644);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

}  // namespace

File& File::operator=(File&& other) noexcept {
    if (this != &other) {
        close();
        fileDescriptor = std::exchange(other.fileDescriptor, -1);
    }
    return *this;
}

bool File::openToRead(const std::string& path) {
    close();
    fileDescriptor = openRetrying(path.c_str(), O_RDONLY);
    return isOpen();
}

bool File::openToChange(const std::string& path) {
    close();
    fileDescriptor = openRetrying(path.c_str(), O_RDWR);
    return isOpen();
}

bool File::createToWrite(const std::string& path, bool overwrite) {
    close();
    fileDescriptor = openRetrying(path.c_str(), O_RDWR | O_CREAT | (overwrite ? 0 : O_EXCL));
    return isOpen();
}

void File::close() {
    if (isOpen()) {
        ::close(std::exchange(fileDescriptor, -1));
    }
}

bool File::isRegular() const {
    struct stat status {};
    return ::fstat(fileDescriptor, &status) == 0 && S_ISREG(status.st_mode);
}

bool File::lockShared() {
    return ::flock(fileDescriptor, LOCK_SH | LOCK_NB) == 0;
}

bool File::lockAlone() {
    return ::flock(fileDescriptor, LOCK_EX | LOCK_NB) == 0;
}

uint64_t File::size() const {
    struct stat status {};
    return ::fstat(fileDescriptor, &status) == 0 && status.st_size > 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

bool File::resize(uint64_t size) {
    return ::ftruncate(fileDescriptor, static_cast<off_t>(size)) == 0;
}

bool File::readAt(uint64_t offset, void* data, std::size_t count) const {
    return readUpTo(offset, data, count) == count;
}

std::size_t File::readUpTo(uint64_t offset, void* data, std::size_t count) const {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t step =
            ::pread(fileDescriptor, static_cast<char*>(data) + done, count - done, static_cast<off_t>(offset + done));
        if (step > 0) {
            done += static_cast<std::size_t>(step);
        } else if (step == 0 || errno != EINTR) {
            break;
        }
    }
    return done;
}

uint64_t File::dataFrom(uint64_t offset) const {
    const off_t data = ::lseek(fileDescriptor, static_cast<off_t>(offset), SEEK_DATA);
    if (data >= 0) {
        return static_cast<uint64_t>(data);
    }
    // A file system that does not know holes has none.
    return errno == ENXIO ? size() : offset;
}

bool File::writeAt(uint64_t offset, ByteView data) {
    iovec part{const_cast<uint8_t*>(data.data()), data.size()};
    return writePartsAt(offset, &part, 1);
}

bool File::writePartsAt(uint64_t offset, iovec* parts, int count) {
    while (count > 0) {
        const ssize_t step = ::pwritev(fileDescriptor, parts, count, static_cast<off_t>(offset));
        if (step < 0 && errno == EINTR) {
            continue;
        }
        if (step < 0) {
            return false;
        }
        offset += static_cast<uint64_t>(step);
        auto left = static_cast<std::size_t>(step);
        for (; count > 0 && left >= parts->iov_len; ++parts, --count) {
            left -= parts->iov_len;
        }
        if (count > 0) {
            parts->iov_base = static_cast<char*>(parts->iov_base) + left;
            parts->iov_len -= left;
        }
    }
    return true;
}

bool File::syncData() {
    // A signal is no failure of the disk.
    int result = -1;
    do {
        result = ::fdatasync(fileDescriptor);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

void syncDirectoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int descriptor = openRetrying(directory.c_str(), O_RDONLY | O_DIRECTORY);
    if (descriptor >= 0) {
        (void)::fsync(descriptor);
        ::close(descriptor);
    }
}

}  // namespace oru::rlx
