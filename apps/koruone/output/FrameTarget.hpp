#pragma once

#include <string>
#include <vector>

#include "oru/CameraOne.hpp"
#include "oru/Mat.hpp"
#include "oru/RecordedFile.hpp"

namespace koruone {

/// What the frames that come will be.
struct FrameFacts {
    oru::Resolution size;
    float fps = 0.0F;
    oru::RLX_COMPRESSION_MODE mode = oru::RLX_H264;
    bool overwrite = false;
    /// How the camera sees the images as they are written; empty where nobody knows.
    oru::CameraParameters lens;
    oru::SensorParameters accelerometer;
    oru::SensorParameters gyroscope;
};

/// One frame on its way: packed YUYV as it was recorded, or a view of it with one or four bytes a pixel.
struct ConvertedFrame {
    const oru::Mat& image;
    std::vector<oru::RecordedSample> samples;  ///< since the frame before
};

/// Where converted frames go. After a false result error() says why and nothing more is written.
class FrameTarget {
public:
    virtual ~FrameTarget() = default;
    /// `source` outlives the target and is the recording that the frames come from.
    [[nodiscard]] virtual bool open(const std::string& path, oru::RecordedFile& source, const FrameFacts& facts) = 0;
    [[nodiscard]] virtual bool write(const ConvertedFrame& frame) = 0;
    [[nodiscard]] virtual bool finish() = 0;
    [[nodiscard]] virtual const std::string& error() const = 0;
};

}  // namespace koruone
