#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "koruone/output/FrameTarget.hpp"
#include "koruone/output/output_file.hpp"
#include "koruone/output/png_file.hpp"

namespace koruone {

/// A directory in the layout of the EuRoC MAV data set
/// (https://projects.asl.ethz.ch/datasets/doku.php?id=kmavvisualinertialdatasets): mav0/cam0 with images, data.csv and
/// sensor.yaml, mav0/imu0 with data.csv in rad/s and m/s^2 and sensor.yaml, times in ns. The body's frame is that of
/// imu0: its origin is the inertial sensor, its axes are the camera's. The camera's calibration text is put beside
/// them.
class EurocWriter final : public FrameTarget {
public:
    bool open(const std::string& path, oru::RecordedFile& source, const FrameFacts& facts) override;
    bool write(const ConvertedFrame& frame) override;
    bool finish() override;
    const std::string& error() const override { return failure; }

private:
    bool writeSensors(const std::filesystem::path& root, const oru::RecordingFacts& recorded, const FrameFacts& facts);
    bool writeImage(const std::filesystem::path& path, const oru::Mat& image);
    void writeSamples(const std::vector<oru::RecordedSample>& samples);
    bool fail(std::string reason);

    std::filesystem::path images;
    std::vector<unsigned char> gray;
    PngEncoder encoder;
    OutputFile frameTable;
    OutputFile sampleTable;
    uint64_t lastSampleNs = 0;
    std::string failure;
};

}  // namespace koruone
