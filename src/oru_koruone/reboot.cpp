#include "collaborators/DeviceDirectory.hpp"
#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/report.hpp"

namespace oru {
namespace {

constexpr const char* kReportedOperation = kRebootSignature;
constexpr int kResetIndex = 1;

}  // namespace

ERROR_CODE CameraOneImpl::reboot() {
    return reboot(GMSL);
}

ERROR_CODE CameraOneImpl::reboot(INPUT_TYPE type) {
    if (type == INPUT_TYPE_NONE) {
        return ORU_REPORT(INVALID_PARAMETER);
    }
    if (type != GMSL) {
        return INVALID_PARAMETER;
    }
    const ERROR_CODE result = CameraMemberHandler::resetMCU(kResetIndex);
    return result > SUCCESS ? ORU_REPORT(result) : result;
}

}  // namespace oru
