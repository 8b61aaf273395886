#include "oru_koru/CameraUtils.hpp"

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru {

bool checkRequestedResolution(Resolution& requested, Resolution& image) {
    if (requested.area() == 0) {
        requested = image;
        return true;
    }
    if (image.width < requested.width) {
        requested.width = image.width;
        ORU_LOG(Warning, "{} Desired width exceed image width.", kTagMat);
        return false;
    }
    if (image.height < requested.height) {
        requested.height = image.height;
        ORU_LOG(Warning, "{} Desired height exceed image height.", kTagMat);
        return false;
    }
    return true;
}

}  // namespace oru
