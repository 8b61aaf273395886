// Looks into a recording without a camera: its facts, one frame's pixels and the inertial samples beside it.
#include <cstdio>

#include "oru/CameraOne.hpp"
#include "oru/RecordedFile.hpp"

namespace {

constexpr const char* kFile = "recorded_file.rlx2";
constexpr int kFrames = 20;

bool record() {
    oru::InitParametersOne parameters;
    parameters.requested_resolution = oru::HD600;
    oru::RecordingParameters recording;
    recording.video_filename = kFile;
    recording.compression_mode = oru::RLX_RAW;
    recording.overwrite = true;

    oru::CameraOne camera;
    if (camera.open(parameters) != oru::SUCCESS || camera.enableRecording(recording) != oru::SUCCESS) {
        return false;
    }
    for (int frame = 0; frame < kFrames; ++frame) {
        if (camera.grab() != oru::SUCCESS) {
            return false;
        }
    }
    return true;  // the camera's end closes the file
}

bool look() {
    oru::RecordedFile file;
    if (file.open(kFile) != oru::SUCCESS) {
        std::printf("%s %s\n", kFile, oru::describe(file.condition()));
        return false;
    }
    const oru::RecordingFacts& facts = file.facts();
    std::printf("camera %d, %llu x %llu at %.0f frames/s, %d frames\n", facts.serial_number,
                static_cast<unsigned long long>(facts.size.width), static_cast<unsigned long long>(facts.size.height),
                static_cast<double>(facts.fps), file.frameCount());

    const int middle = file.frameCount() / 2;
    file.setPosition(middle);
    oru::Mat image;
    if (file.readFrame(image) != oru::SUCCESS) {
        return false;
    }
    const auto* yuyv = image.getPtr<unsigned char>(oru::CPU);
    const auto samples = file.samplesBetween(file.frameTime(middle - 1), file.frameTime(middle));
    std::printf("frame %d: first pixel's luma %d, %zu inertial samples since the frame before\n", middle, yuyv[0],
                samples.size());
    return image.timestamp == file.frameTime(middle) && !samples.empty();
}

}  // namespace

int main() {
    return record() && look() && oru::RecordedFile::verify(kFile).condition == oru::RECORDING_CONDITION::INTACT ? 0 : 1;
}
