#include "backends/calibration_fetch/address.hpp"

#include <string_view>

namespace oru {

std::string calibrationAddress(const std::string& base, int serialNumber) {
    constexpr std::string_view kPlaceholder = "{serial}";
    constexpr std::string_view kEnding = ".conf";
    const std::string serial = std::to_string(serialNumber);
    std::string address = base;
    if (const auto place = address.find(kPlaceholder); place != std::string::npos) {
        return address.replace(place, kPlaceholder.size(), serial);
    }
    const bool isWhole = address.find('?') != std::string::npos ||
                         (address.size() >= kEnding.size() &&
                          address.compare(address.size() - kEnding.size(), kEnding.size(), kEnding) == 0);
    if (isWhole) {
        return address;
    }
    if (address.empty() || address.back() != '/') {
        address += '/';
    }
    return address + "SN" + serial + std::string(kEnding);
}

bool namesAnotherCamera(const std::string& address, int serialNumber) {
    const std::string path = address.substr(0, address.find_first_of("?#"));
    const std::string name = path.substr(path.rfind('/') + 1);
    const bool isCameraFile = name.size() > 7 && name.compare(0, 2, "SN") == 0 &&
                              name.find_first_not_of("-0123456789", 2) == name.size() - 5 &&
                              name.compare(name.size() - 5, 5, ".conf") == 0;
    return isCameraFile && name != "SN" + std::to_string(serialNumber) + ".conf";
}

}  // namespace oru
