#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace oru::virtual_bus {

/// Exclusive ownership of one camera among all processes of the machine: an open-file-description lock on a file named
/// after the serial number (fcntl(2), F_OFD_SETLK), in /tmp or in $KORU_VIRTUAL_BUS_LOCKS. The kernel frees it when the
/// owner dies, however it dies.
class CameraLock {
public:
    enum class Result : int32_t { TAKEN, BUSY, FAILED };

    CameraLock() = default;
    CameraLock(CameraLock&& other) noexcept : lockFile(std::exchange(other.lockFile, -1)) {}
    CameraLock& operator=(CameraLock&& other) noexcept;
    CameraLock(const CameraLock&) = delete;
    CameraLock& operator=(const CameraLock&) = delete;
    ~CameraLock() { release(); }

    /// Does not wait. `failed` when the lock file can be neither opened nor made.
    [[nodiscard]] Result acquire(uint32_t serial);
    void release();

    /// Whether anyone holds the camera; takes no lock itself.
    [[nodiscard]] static bool isHeld(uint32_t serial);
    /// The process that took the camera last, as a text for a message.
    [[nodiscard]] static std::string holder(uint32_t serial);

private:
    int lockFile = -1;
};

}  // namespace oru::virtual_bus
