#pragma once

#include <string>

namespace oru {

/// A folder that only this process's user can read, in the first place that can be written: TMPDIR or /tmp,
/// XDG_RUNTIME_DIR, /dev/shm. Gone with the object. Threads: one at a time.
class PrivateDirectory {
public:
    PrivateDirectory() = default;
    ~PrivateDirectory() { remove(); }
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;

    /// Makes an empty one in place of what was there; false when no place can be written.
    [[nodiscard]] bool make();
    void remove();
    [[nodiscard]] bool exists() const { return !folder.empty(); }
    /// Its path with "/" at the end; empty without one.
    [[nodiscard]] const std::string& prefix() const { return folder; }

private:
    std::string folder;
};

}  // namespace oru
