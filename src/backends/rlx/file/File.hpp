#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <string>
#include <utility>

#include "utils/bytes.hpp"

namespace oru::rlx {

/// An open file, closed and unlocked by the destructor. Operations answer false with errno set.
class File {
public:
    File() = default;
    ~File() { close(); }
    File(File&& other) noexcept : fileDescriptor(std::exchange(other.fileDescriptor, -1)) {}
    File& operator=(File&& other) noexcept;
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    [[nodiscard]] bool openToRead(const std::string& path);
    [[nodiscard]] bool openToChange(const std::string& path);
    /// A new file, locked alone. An existing one is refused (EEXIST), and so is one that another recorder takes over.
    [[nodiscard]] bool createNew(const std::string& path);
    /// An existing file to be overwritten, locked alone; its content stays until it is resized.
    [[nodiscard]] bool openToOverwrite(const std::string& path);
    void close();
    [[nodiscard]] bool isOpen() const { return fileDescriptor >= 0; }

    /// A regular file, not a directory or a device.
    [[nodiscard]] bool isRegular() const;
    /// Advisory, held until close(): a recorder's or repair's keeps all others out, a reader's only those two. True as
    /// well on a file system that knows no locks, where nobody is kept out.
    [[nodiscard]] bool lockShared();
    [[nodiscard]] bool lockAlone();
    /// Whether any program holds the file open to write, as far as the file system tells.
    [[nodiscard]] static bool isBeingWritten(const std::string& path);

    /// 0 when it cannot be told.
    [[nodiscard]] uint64_t size() const;
    [[nodiscard]] bool resize(uint64_t size);
    /// Exactly `count` bytes; false at the end of the file.
    [[nodiscard]] bool readAt(uint64_t offset, void* data, std::size_t count) const;
    /// As many of `count` bytes as there are.
    [[nodiscard]] std::size_t readUpTo(uint64_t offset, void* data, std::size_t count) const;
    /// The first offset at or behind this one that is not in a hole; the file's size when there is none.
    [[nodiscard]] uint64_t dataFrom(uint64_t offset) const;
    [[nodiscard]] bool writeAt(uint64_t offset, ByteView data);
    /// Writes the parts one after the other; changes the array.
    [[nodiscard]] bool writePartsAt(uint64_t offset, iovec* parts, int count);
    [[nodiscard]] bool syncData();
    /// Copies every byte to an empty file, sharing blocks where the file system can.
    [[nodiscard]] bool copyTo(File& target) const;

private:
    [[nodiscard]] bool lockAloneAt(const std::string& path);

    int fileDescriptor = -1;
};

/// Makes the name of a new file outlive a crash.
void syncDirectoryOf(const std::string& path);

}  // namespace oru::rlx
