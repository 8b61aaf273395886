#include "backends/rlx/file/File.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace oru::rlx {

namespace {

constexpr std::size_t kCopyBlock = std::size_t{1} << 20;

int openRetrying(const char* path, int flags) {
    int descriptor = -1;
    do {
        descriptor = ::open(path, flags | O_CLOEXEC | O_NONBLOCK, 0644);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

/// A lock that the file system does not offer keeps nobody out; that is no reason to refuse the file.
bool locksAreMissing(int error) {
    return error == ENOLCK || error == EOPNOTSUPP || error == ENOSYS;
}

bool lock(int descriptor, int kind) {
    int result = -1;
    do {
        result = ::flock(descriptor, kind | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    return result == 0 || locksAreMissing(errno);
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

bool File::createNew(const std::string& path) {
    close();
    fileDescriptor = openRetrying(path.c_str(), O_RDWR | O_CREAT | O_EXCL);
    return isOpen() && lockAloneAt(path);
}

bool File::openToOverwrite(const std::string& path) {
    return openToChange(path) && lockAloneAt(path);
}

/// Another recorder may have locked or removed the file since it was opened; then it is not ours.
bool File::lockAloneAt(const std::string& path) {
    struct stat mine {};
    struct stat named {};
    if (lockAlone() && ::fstat(fileDescriptor, &mine) == 0 && ::stat(path.c_str(), &named) == 0 &&
        mine.st_ino == named.st_ino && mine.st_dev == named.st_dev) {
        return true;
    }
    close();
    errno = EBUSY;
    return false;
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
    return lock(fileDescriptor, LOCK_SH);
}

bool File::lockAlone() {
    return lock(fileDescriptor, LOCK_EX);
}

bool File::isBeingWritten(const std::string& path) {
    File reader;
    if (!reader.openToRead(path)) {
        return false;
    }
    // The kernel grants a read lease only while nobody has the file open to write. Whoever opens it while the lease
    // lasts waits for its end, which would send us SIGIO: SIGURG is ignored by default.
    (void)::fcntl(reader.fileDescriptor, F_SETSIG, SIGURG);
    if (::fcntl(reader.fileDescriptor, F_SETLEASE, F_RDLCK) == 0) {
        (void)::fcntl(reader.fileDescriptor, F_SETLEASE, F_UNLCK);
        return false;
    }
    return errno == EAGAIN;
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

bool File::copyTo(File& target) const {
    const uint64_t total = size();
    off_t from = 0;
    off_t to = 0;
    while (static_cast<uint64_t>(from) < total) {
        const ssize_t step = ::copy_file_range(fileDescriptor, &from, target.fileDescriptor, &to,
                                               total - static_cast<uint64_t>(from), 0);
        if (step == 0 || (step < 0 && errno != EINTR)) {
            break;
        }
    }
    // Not every kernel and file system can; the rest goes through memory.
    Bytes block(kCopyBlock);
    for (auto done = static_cast<uint64_t>(from); done < total;) {
        const std::size_t count = readUpTo(done, block.data(), std::min<uint64_t>(block.size(), total - done));
        if (count == 0 || !target.writeAt(done, ByteView(block).first(count))) {
            return false;
        }
        done += count;
    }
    return target.syncData();
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
