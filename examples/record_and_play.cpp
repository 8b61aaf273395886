// Records two seconds of a live camera, then plays the file: the same loop, the same camera class.
#include <cstdio>

#include "oru/CameraOne.hpp"

namespace {

constexpr const char* kFile = "two_seconds.rlx2";

bool record() {
    oru::InitParametersOne parameters;
    parameters.requested_resolution = oru::HD600;
    parameters.requested_fps = 30;
    oru::RecordingParameters recording;
    recording.video_filename = kFile;
    recording.overwrite = true;

    oru::CameraOne camera;
    if (camera.open(parameters) != oru::SUCCESS || camera.enableRecording(recording) != oru::SUCCESS) {
        return false;
    }
    for (int frame = 0; frame < 60; ++frame) {
        if (camera.grab() != oru::SUCCESS) {
            return false;
        }
    }
    camera.disableRecording();  // the rest is written and the file closed
    const oru::RecordingStatus status = camera.getRecordingStatus();
    std::printf("%llu frames recorded, %llu dropped\n", static_cast<unsigned long long>(status.frames_written),
                static_cast<unsigned long long>(status.frames_dropped));
    return status.last_result == oru::SUCCESS && status.frames_written > 0;
}

bool play() {
    oru::InitParametersOne parameters;
    parameters.input.setFromFile(kFile);
    parameters.rlx_real_time = false;  // every frame, as fast as it can be decoded

    oru::CameraOne camera;
    if (camera.open(parameters) != oru::SUCCESS) {
        return false;
    }
    oru::Mat image;
    int frames = 0;
    oru::ERROR_CODE result = camera.grab();
    for (; result == oru::SUCCESS; result = camera.grab()) {
        if (camera.retrieveImage(image) != oru::SUCCESS) {
            return false;
        }
        ++frames;
    }
    std::printf("%d of %d frames played, then: %s\n", frames, camera.getRLXNumberOfFrames(),
                oru::toString(result).c_str());
    return result == oru::END_OF_INPUT && frames == camera.getRLXNumberOfFrames();
}

}  // namespace

int main() {
    return record() && play() ? 0 : 1;
}
