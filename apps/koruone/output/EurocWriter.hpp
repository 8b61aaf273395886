#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "koruone/output/FrameTarget.hpp"
#include "koruone/output/output_file.hpp"
#include "koruone/output/png_file.hpp"

namespace koruone {

/// A directory in the layout of the EuRoC MAV data set
/// (https://projects.asl.ethz.ch/datasets/doku.php?id=kmavvisualinertialdatasets): mav0/cam0 with gray images and
/// data.csv, mav0/imu0/data.csv in rad/s and m/s^2 along the camera's axes, times in ns. The camera's calibration text
/// is put beside them.
class EurocWriter final : public FrameTarget {
public:
    bool open(const std::string& path, const oru::RecordedFile& source, oru::RLX_COMPRESSION_MODE mode) override;
    bool write(const oru::Mat& image, oru::RecordedFile& source) override;
    bool finish() override;
    const std::string& error() const override { return failure; }

private:
    void writeSamples(const std::vector<oru::RecordedSample>& samples);
    bool fail(std::string reason);

    std::filesystem::path images;
    std::size_t width = 0;
    std::size_t height = 0;
    std::vector<unsigned char> gray;
    PngEncoder encoder;
    OutputFile frameTable;
    OutputFile sampleTable;
    uint64_t lastSampleNs = 0;
    std::string failure;
};

}  // namespace koruone
