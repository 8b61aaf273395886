#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>

#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/report.hpp"

namespace oru {
namespace {

constexpr const char* kReportedOperation = kOpenSignature;
constexpr int32_t kDefaultPort = 30000;

}  // namespace

void CameraOneImpl::selectStream() {
    inputMode = INPUT_MODE_STREAM;
    const std::string& address = initParameters.input.first().get();
    streamInputIp = address;
    streamInputPort = kDefaultPort;
    if (const std::size_t colon = address.rfind(':'); colon != std::string::npos) {
        streamInputIp = address.substr(0, colon);
        const long port = std::strtol(address.c_str() + colon + 1, nullptr, 10);
        // Outside of what a port can be it stays outside.
        streamInputPort = static_cast<int32_t>(std::clamp<long>(port, INT32_MIN, INT32_MAX));
    }
}

ERROR_CODE CameraOneImpl::connectStream() {
    if (streamInputPort < 0 || streamInputPort > std::numeric_limits<unsigned short>::max()) {
        return ORU_REPORT(INVALID_PARAMETER);
    }
    // The next receiver exists before the first one goes, which is before the next one connects.
    streamInput = collaborators->makeStreamInput(initParameters.verbosity != 0);
    if (!streamInput) {
        return ORU_REPORT(NOT_SUPPORTED);
    }
    streamInput->useKeys(incomingKeys);
    const int connected = streamInput->open(streamInputIp.c_str(), static_cast<unsigned short>(streamInputPort), 0);
    if (connected == STREAM_NOT_DESCRIBED || connected > STREAM_CONNECTED) {
        return ORU_REPORT(FAILURE);
    }
    if (connected < STREAM_CONNECTED) {
        return ORU_REPORT(STREAM_SETUP_FAILED);
    }
    return SUCCESS;
}

}  // namespace oru
