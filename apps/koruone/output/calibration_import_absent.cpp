#include "koruone/output/calibration_formats.hpp"

namespace koruone {

std::optional<SizedLens> readForeignCalibration(const std::string& /*path*/, std::string& error) {
    error = "this tool was built without yaml-cpp";
    return std::nullopt;
}

}  // namespace koruone
