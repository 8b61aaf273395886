// The inertial samples that belong to each image: all of them, and the one at the moment of the image.
#include <cstdio>
#include <vector>

#include "oru/CameraOne.hpp"

int main() {
    oru::InitParametersOne parameters;
    parameters.requested_fps = 30;
    parameters.length_unit = oru::UNIT_METER;

    oru::CameraOne camera;
    if (camera.open(parameters) != oru::SUCCESS) {
        return 1;
    }
    std::vector<oru::SensorsData> batch;
    for (int frame = 0; frame < 30; ++frame) {
        oru::SensorsData sample;
        if (camera.grab() != oru::SUCCESS || camera.getSensorsData(sample, oru::IMAGE) != oru::SUCCESS) {
            return 1;
        }
        // Several samples lie between two images; none is lost between two batches.
        if (camera.getSensorsDataBatch(batch) != oru::SUCCESS) {
            return 1;
        }
        const oru::Timestamp image = camera.getTimestamp(oru::IMAGE);
        std::printf("image %llu ns: %zu samples, pose sample %+.3f ms away\n", static_cast<unsigned long long>(image),
                    batch.size(), (static_cast<double>(sample.imu.timestamp) - static_cast<double>(image)) * 1e-6);
    }
    return 0;
}
