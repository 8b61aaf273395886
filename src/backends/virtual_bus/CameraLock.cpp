#include "backends/virtual_bus/CameraLock.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "utils/text_file.hpp"

namespace oru::virtual_bus {
namespace {

constexpr mode_t kEveryone = 0666;
constexpr std::size_t kMaxNoteBytes = 64;

// Not $TMPDIR: processes with different environments must meet at the same file unless they are told not to.
std::string lockPath(uint32_t serial) {
    const char* directory = std::getenv("KORU_VIRTUAL_BUS_LOCKS");
    return std::string(directory != nullptr && *directory != '\0' ? directory : P_tmpdir) + "/koru-virtual-camera-" +
           std::to_string(serial) + ".lock";
}

int openLockFile(uint32_t serial) {
    const std::string path = lockPath(serial);
    // O_CREAT on a file of another user is refused in sticky directories, so an existing file is opened without.
    int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (file < 0) {
        file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kEveryone);
        if (file >= 0) {
            (void)::fchmod(file, kEveryone);  // the umask must not lock other users out
        }
    }
    return file;
}

struct flock wholeFile() {
    struct flock range {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    return range;
}

}  // namespace

CameraLock& CameraLock::operator=(CameraLock&& other) noexcept {
    if (this != &other) {
        release();
        lockFile = std::exchange(other.lockFile, -1);
    }
    return *this;
}

CameraLock::Result CameraLock::acquire(uint32_t serial) {
    release();
    const int file = openLockFile(serial);
    if (file < 0) {
        return Result::FAILED;
    }
    struct flock range = wholeFile();
    if (::fcntl(file, F_OFD_SETLK, &range) != 0) {
        ::close(file);
        return Result::BUSY;
    }
    lockFile = file;
    // For who finds the camera taken; a lost note costs no more than a name in a message.
    const std::string owner = std::to_string(::getpid()) + "\n";
    (void)!::ftruncate(file, 0);
    (void)!::pwrite(file, owner.data(), owner.size(), 0);
    return Result::TAKEN;
}

void CameraLock::release() {
    if (lockFile >= 0) {
        ::close(lockFile);
        lockFile = -1;
    }
}

std::string CameraLock::holder(uint32_t serial) {
    const std::string note = readPlainText(lockPath(serial), kMaxNoteBytes).text;
    int process = 0;
    if (std::from_chars(note.data(), note.data() + note.size(), process).ec != std::errc() || process <= 0) {
        return "another process";
    }
    std::string name;
    std::getline(std::ifstream("/proc/" + std::to_string(process) + "/comm"), name);
    return "process " + std::to_string(process) + (name.empty() ? "" : " (" + name + ")");
}

bool CameraLock::isHeld(uint32_t serial) {
    const int file = ::open(lockPath(serial).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (file < 0) {
        return false;
    }
    struct flock range = wholeFile();
    const bool held = ::fcntl(file, F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
    ::close(file);
    return held;
}

}  // namespace oru::virtual_bus
