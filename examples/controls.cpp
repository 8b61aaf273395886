// Sets gain by hand, then gives exposure and gain back to the camera.
#include <cstdio>

#include "oru/CameraOne.hpp"

int main() {
    oru::CameraOne camera;
    if (camera.open({}) != oru::SUCCESS) {
        return 1;
    }
    int low = 0;
    int high = 0;
    if (!camera.isCameraSettingSupported(oru::GAIN) ||
        camera.getCameraSettingsRange(oru::GAIN, low, high) != oru::SUCCESS) {
        return 1;
    }
    const int wanted = low + (high - low) / 4;
    int gain = -1;
    if (camera.setCameraSettings(oru::GAIN, wanted) != oru::SUCCESS ||
        camera.getCameraSettings(oru::GAIN, gain) != oru::SUCCESS) {
        return 1;
    }
    std::printf("gain %d of %d to %d\n", gain, low, high);

    // The middle quarter of the image decides; then the whole image again.
    const oru::CameraDescription cameraInformation = camera.getCameraInformation();
    const oru::Resolution size = cameraInformation.configuration.resolution;
    const oru::Rect middle{size.width / 4, size.height / 4, size.width / 2, size.height / 2};
    if (camera.setCameraSettings(oru::AEC_AGC, 1) != oru::SUCCESS ||
        camera.setCameraSettings(oru::AEC_AGC_ROI, middle, false) != oru::SUCCESS ||
        camera.setCameraSettings(oru::AEC_AGC_ROI, oru::Rect{}, true) != oru::SUCCESS) {
        return 1;
    }
    return gain == wanted ? 0 : 1;
}
