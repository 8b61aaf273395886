#include "oru_koru/CameraUtils.hpp"
#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/GpuContextScope.hpp"

namespace oru {
namespace {

constexpr int32_t kGrayBit = 2;
constexpr int32_t kUnrectifiedBit = 4;

}  // namespace

ERROR_CODE CameraOneImpl::retrieveImage(Mat& destination, VIEW view, MEM memory, Resolution size) {
    if (!grabber) {
        return CAMERA_NOT_READY;
    }
    if ((view & ~(kGrayBit | kUnrectifiedBit)) != 0) {
        return INVALID_CALL;
    }
    if (!checkRequestedResolution(size, imageSize)) {
        return RESOLUTION_NOT_SUPPORTED;
    }
    const MAT_TYPE type = (view & kGrayBit) != 0 ? U8_C1 : U8_C4;
    const bool fits = destination.getWidth() == size.width && destination.getHeight() == size.height &&
                      destination.getDataType() == type;
    const GpuContextScope context(collaborators->gpu(), initParameters.cuda_context);
    if (!fits) {
        (void)destination.alloc(size, type, memory);
    }
    (void)rectifier->getView(view, size, destination, memory, cudaStream);
    return SUCCESS;
}

}  // namespace oru
