#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "backends/rlx/rlx_factory.hpp"
#include "doubles/CalibrationKeeper.hpp"
#include "doubles/TemporaryDirectory.hpp"

namespace oru::rlx_test {

using doubles::CalibrationKeeper;
using doubles::TemporaryDirectory;

inline constexpr RLX_COMPRESSION_MODE kModes[] = {RLX_RAW, RLX_H264, RLX_H265, RLX_LOSSLESS, RLX_FFV1};
inline constexpr bool isLossless(RLX_COMPRESSION_MODE mode) {
    return mode == RLX_RAW || mode == RLX_LOSSLESS || mode == RLX_FFV1;
}

inline constexpr int kSerialNumber = 60'123'456;

/// A camera that can be computed: every frame's image, time, metadata and packets follow from its number.
struct Scene {
    uint32_t width = 64;
    uint32_t height = 48;
    float fps = 30.0F;
    RLX_COMPRESSION_MODE mode = RLX_RAW;
    int version = 2;
    bool calibrated = true;

    [[nodiscard]] rlxrw::RlxRecordingHeader header() const;
    [[nodiscard]] std::vector<unsigned char> image(uint64_t number) const;
    [[nodiscard]] Timestamp time(uint64_t number) const;
    [[nodiscard]] rlxrw::rlxSampleMetadata metadata(uint64_t number) const;
    [[nodiscard]] IMUPacket imu(uint64_t number) const;
    [[nodiscard]] std::vector<IMUPacket> packets(uint64_t number) const;
};

inline std::string modeName(const testing::TestParamInfo<RLX_COMPRESSION_MODE>& mode) {
    return "Mode" + std::to_string(mode.param);
}

/// Writes an image with nothing but its time; the result of writeFrame.
int writeImage(rlxrw::RLXVideo& recorder, const std::vector<unsigned char>& image, Timestamp time);
/// Writes one frame of the scene; the result of writeFrame.
int writeSceneFrame(rlxrw::RLXVideo& recorder, const Scene& scene, uint64_t number);
/// Records frames 0 to count - 1 and closes the file.
void record(const std::string& path, const Scene& scene, uint64_t count);

/// A folder for one file, and what may read or write it.
struct OneFile {
    TemporaryDirectory folder;
    std::string path = folder.path("a.rlx2");
    CalibrationKeeper calibration;
    std::unique_ptr<rlxrw::RLXVideo> file = makeRlxVideo(calibration);
    Timestamp time = 0;
};

/// What a file gives when it is played to its end.
struct Played {
    int open_result = -1;
    std::vector<Timestamp> times;
    uint64_t wrong_images = 0;  ///< delivered with another content than was recorded (lossless modes: any byte)
    uint64_t wrong_facts = 0;   ///< delivered with another time, metadata or other packets
    FrameCounters counters;
};
Played play(const std::string& path, const Scene& scene);

[[nodiscard]] std::vector<unsigned char> readBytes(const std::string& path);
void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes);

}  // namespace oru::rlx_test
