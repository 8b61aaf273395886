#include "compose/open_parameters.hpp"

#include <charconv>
#include <cmath>
#include <limits>
#include <string>

#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "oru_koruone/CameraOneImpl.hpp"
#include "tables/tables.hpp"

namespace oru {
namespace {

constexpr float kFastest = 1e6F;  // frames per second; beyond it a rate is no rate

bool isLive(const InputType& input) {
    return input.kind() == KIND_GMSL_ID || input.kind() == KIND_GMSL_SERIAL;
}

/// A whole decimal number of this integer, and nothing else.
template <class Integer>
bool isNumber(const std::string& text) {
    Integer number{};
    const char* end = text.data() + text.size();
    const std::from_chars_result read = std::from_chars(text.data(), end, number);
    return read.ec == std::errc() && read.ptr == end;
}

}  // namespace

bool canNameACamera(const InputType& input) {
    if (!input.isSet() || !isLive(input)) {
        return true;
    }
    const bool isId = input.kind() == KIND_GMSL_ID;
    const std::string& text = input.first().get();
    const bool fits = isId ? isNumber<int32_t>(text) : isNumber<uint32_t>(text);
    if (!fits) {
        ORU_LOG(Error, "{} No camera can have the {} \"{}\".", kTagInit, isId ? "id" : "serial number", text);
    }
    return fits;
}

InitParametersOne parametersInForce(CameraOneImpl& camera) {
    InitParametersOne parameters = camera.getInitParameters();
    const CameraDescription description = camera.getCameraInformation({});
    if (const float rate = camera.getCameraFPS(); rate > 0.0F && rate < kFastest) {
        parameters.requested_fps = static_cast<int32_t>(std::lround(rate));
    }
    parameters.requested_resolution = resolutionOf(description.configuration.resolution);
    const bool hasHdr = isLive(parameters.input) && description.model != MODEL_MONO_3UM;
    parameters.use_hdr = parameters.use_hdr && hasHdr;
    return parameters;
}

void logAdjustments(const InitParametersOne& asked, const InitParametersOne& inForce) {
    if (!isLive(inForce.input)) {
        return;
    }
    if (asked.requested_fps > 0 && asked.requested_fps != inForce.requested_fps) {
        ORU_LOG(Info, "{} {} fps were asked for, the camera runs at {}.", kTagInit, asked.requested_fps,
                inForce.requested_fps);
    }
    if (asked.use_hdr && !inForce.use_hdr) {
        ORU_LOG(Info, "{} HDR was asked for, this camera has none.", kTagInit);
    }
}

}  // namespace oru
