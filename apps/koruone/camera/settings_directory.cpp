#include "koruone/camera/settings_directory.hpp"

#include <cstdlib>

namespace koruone {

std::string defaultSettingsPath() {
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data != nullptr && *data == '/') {
        return std::string(data) + "/koru/settings/";
    }
    const char* home = std::getenv("HOME");
    return home != nullptr && *home != '\0' ? std::string(home) + "/.local/share/koru/settings/" : "";
}

}  // namespace koruone
