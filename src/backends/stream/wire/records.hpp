#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "backends/stream/wire/ts_demuxer.hpp"
#include "collaborators/RLXVideo.hpp"
#include "collaborators/UDPInput.hpp"
#include "oru/settings.hpp"
#include "oru_input/mcu/IMUPacket.hpp"
#include "utils/bytes.hpp"

namespace oru::stream {

/// Upper bounds of what one record may carry; a reader refuses more, a writer never exceeds them.
constexpr std::size_t kMaxImuPerRecord = 512;
constexpr std::size_t kMaxFrameRecordBytes = std::size_t{56} << 10;
constexpr std::size_t kMaxControls = 64;
constexpr std::size_t kMaxCalibrationBytes = std::size_t{32} << 10;
constexpr uint32_t kMaxImageSide = 8192;
constexpr int32_t kMaxFps = 1000;

/// What travels with one image, or alone (without image) while none is sent.
struct FrameRecord {
    bool key_frame = false;
    bool has_metadata = false;
    bool has_image = false;
    bool goodbye = false;      ///< the sender ends the stream: nothing of its session comes after this record
    uint32_t image_bytes = 0;  ///< length of the coded image: the last bytes of its PES payload
    uint32_t image_crc = 0;    ///< CRC-32 (IEEE 802.3) of those bytes
    uint64_t session = 0;      ///< drawn anew at every start of a sender
    uint64_t frame_id = 0;     ///< one more for each frame the sender took
    uint64_t timestamp_ns = 0;
    uint64_t skipped_frames = 0;  ///< frames that the sender had to pass over since its start
    rlxrw::rlxSampleMetadata metadata{};
};

/// One control of the sending camera.
struct ControlState {
    VIDEO_SETTINGS control{};
    bool value_known = false;
    bool range_known = false;
    int32_t value = 0;
    int32_t minimum = 0;
    int32_t maximum = 0;
};

/// The sending camera, as each receiver learns it when it connects and with every key frame.
struct DescriptionRecord {
    uint8_t version_byte = 0;  ///< 4: images only; 5: with inertial data and pose
    bool pose_known = false;
    bool region_known = false;
    uint64_t session = 0;
    int32_t fps = 0;
    StreamDescription camera{};
    StreamImuPose pose{};
    Rect region{};
    std::vector<ControlState> controls;
    std::string calibration;
    std::optional<ImuCalibration> imu_calibration;
};

/// Appends one frame record to `target` with as many samples from the front of `packets` as fit; returns how many.
std::size_t writeFrameRecord(std::vector<uint8_t>& target, const FrameRecord& record, const IMUPacket* packets,
                             std::size_t count);
void writeDescription(std::vector<uint8_t>& target, const DescriptionRecord& record);

/// Receives the records of one data packet, in their order.
class RecordSink {
public:
    virtual ~RecordSink() = default;
    virtual void onFrameRecord(const FrameRecord& record, const std::vector<IMUPacket>& packets) = 0;
    virtual void onDescription(DescriptionRecord&& record) = 0;
};

/// Reads the records of a data packet. Unknown keys are skipped; the first malformed record ends the packet. Numbers
/// that no camera has, a rate above kMaxFps or a pose that is not finite, count as not announced.
/// @retval false something in it was malformed
/// Threads: one; its sample list is reused from call to call.
class RecordReader {
public:
    bool read(const uint8_t* data, std::size_t size, RecordSink& sink);

private:
    bool readFrame(ByteView content, RecordSink& sink);
    static bool readDescription(ByteView content, RecordSink& sink);

    std::vector<IMUPacket> samples;
};

/// CRC-32 (IEEE 802.3, reflected) of a block.
uint32_t checksum(const uint8_t* data, std::size_t size);

}  // namespace oru::stream
