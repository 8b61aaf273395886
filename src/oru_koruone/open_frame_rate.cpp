#include <array>
#include <cstdlib>
#include <optional>

#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/report.hpp"

namespace oru {
namespace {

constexpr std::array<int32_t, 4> kLowerRates{100, 60, 30, 15};
constexpr int32_t kHighestRate = 120;
constexpr int64_t kFarthest = 9999;  // a request farther than this from every rate stays as it is

/// Both the rate when none is asked for and the highest one, by resolution.
std::optional<int32_t> rateLimit(RESOLUTION resolution, int32_t inputDefault) {
    switch (resolution) {
        case HD1242:
            return 15;
        case HD1080:
            return inputDefault;
        case HD1200:
        case HD720:
            return 60;
        case HD600:
            return 120;
        case HD376:
            return 100;
        default:
            return std::nullopt;
    }
}

/// The nearest supported rate; of two equally near ones the higher.
int32_t nearestRate(int32_t request) {
    const auto distance = [request](int32_t rate) { return std::abs(int64_t{request} - rate); };
    int32_t nearest = kHighestRate;
    int64_t best = distance(kHighestRate);
    if (best >= kFarthest) {
        nearest = request;
        best = kFarthest;
    }
    for (const int32_t rate : kLowerRates) {
        if (distance(rate) < best) {
            nearest = rate;
            best = distance(rate);
        }
    }
    return nearest;
}

}  // namespace

void CameraOneImpl::CheckRequestedFPS(bool /*verbose*/, INPUT_TYPE inputType) {
    const std::optional<int32_t> limit = rateLimit(resolution, inputType == GMSL ? 60 : 30);
    const bool useDefault = cameraFps == 0 && limit.has_value();
    cameraFps = nearestRate(useDefault ? *limit : cameraFps);
    const bool onlyTheLimit = resolution == HD1242;
    if (limit.has_value() && (onlyTheLimit ? cameraFps != *limit : cameraFps > *limit)) {
        ORU_LOG(Info, "{} Requested FPS ({}fps) is too high for the current resolution... Using {} fps instead.",
                kTagInit, cameraFps, *limit);
        cameraFps = *limit;
    }
}

}  // namespace oru
