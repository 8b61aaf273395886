#include "compose/PrivateDirectory.hpp"

#include <stdlib.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace oru {

bool PrivateDirectory::make() {
    remove();
    constexpr std::array<const char*, 2> kVariables{"TMPDIR", "XDG_RUNTIME_DIR"};
    std::array<std::string, 4> places{"", "/tmp", "", "/dev/shm"};
    for (std::size_t i = 0; i < kVariables.size(); ++i) {
        const char* place = std::getenv(kVariables[i]);
        places[2 * i] = place != nullptr && place[0] == '/' ? place : "";
    }
    for (const std::string& place : places) {
        std::string pattern = place + "/koru-XXXXXX";
        if (!place.empty() && ::mkdtemp(pattern.data()) != nullptr) {
            folder = pattern + "/";
            return true;
        }
    }
    return false;
}

void PrivateDirectory::remove() {
    if (!folder.empty()) {
        std::error_code ignored;  // what cannot be removed lies among temporary files
        std::filesystem::remove_all(folder, ignored);
        folder.clear();
    }
}

}  // namespace oru
