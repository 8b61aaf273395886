#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "oru/recording.hpp"
#include "oru/types.hpp"
#include "oru_input/grabber/frame_status.hpp"
#include "oru_input/mcu/IMUPacket.hpp"

namespace oru::rlxrw {

/// Metadata of one frame, shared by recorded files and the network stream.
struct rlxSampleMetadata {
    unsigned char bytes[256];
};

/// Header facts of a version-1 file.
class IRLXWriter {
public:
    virtual ~IRLXWriter() = default;

    virtual int getSerialNumber() = 0;
    virtual int getWidth() = 0;
    virtual int getHeight() = 0;
    virtual float getfps() = 0;
    virtual int getType() = 0;
};

/// Header facts of a version-2 file.
struct RlxHeaderV2 {
    int serial_number = 0;
    int width = 0;
    int height = 0;
    float fps = 0.0F;
    bool decompression_platform = false;
    bool flipped = false;
};

/// What the head of a new file holds.
struct RlxRecordingHeader {
    int version = 2;
    int serial_number = 0;
    MODEL model = MODEL_UNKNOWN;
    uint32_t camera_fw = 0;
    uint32_t sensors_fw = 0;
    uint32_t imu_data_version = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    float fps = 0.0F;
    bool flipped = false;                 ///< version 2 only
    bool decompression_platform = false;  ///< version 2 only: the recording platform decodes this mode in real time
    bool has_imu = false;
    int sharpness = 0;
    RLX_COMPRESSION_MODE compression_mode = RLX_H264;
    uint32_t bitrate = 0;  ///< kbit/s; 0 automatic
    ImuCalibration imu_calibration;
    bool has_imu_to_camera = false;
    Matrix4f imu_to_camera;  ///< takes camera coordinates to the sensor's, millimetres
    std::string calibration_text;
};

/// One frame to be written; the pointers are borrowed for the call.
struct RlxFrame {
    const unsigned char* pixels = nullptr;  ///< YUYV, one block
    std::size_t size = 0;
    Timestamp time = 0;
    rlxSampleMetadata metadata{};
    const IMUPacket* imu = nullptr;  ///< the sample taken with the image, or null
    const IMUPacket* packets = nullptr;
    std::size_t packet_count = 0;
    uint32_t lost_before = 0;  ///< frames that were to be recorded since the last one and are not in the file
};

/// Answer of open, create and repairFile where this installation has no support for recordings.
inline constexpr int kRlxModuleMissing = 3;

/// What open answers.
enum RLX_OPEN_RESULT : int {
    RLX_OPENED = 0,
    RLX_DAMAGED = 1,        ///< or missing, unreadable, no recording
    RLX_NOT_DECODABLE = 2,  ///< no decoder here for its compression
};

/// What create answers.
enum RLX_CREATE_RESULT : int {
    RLX_CREATED = 0,
    RLX_NOT_CREATABLE = 1,  ///< no right, no room, or another recorder writes it
    RLX_NO_ENCODER = 2,     ///< none here for the mode, or none for this size
    RLX_EXISTS = 4,         ///< createNew only
};

/// What writeFrame answers. After a failure only close makes sense.
enum RLX_WRITE_RESULT : int {
    RLX_WRITTEN = 0,
    RLX_CANNOT_GROW = 1,  ///< disk full, I/O error
    RLX_ENCODER_FAILED = 2,
};

/// The file that a recorder writes, by itself. A thread that writes may hold it longer than the recorder lives, when
/// its storage hangs. Threads: writeFrame and close one at a time; the counts from any.
class RecordingFile {
public:
    virtual ~RecordingFile() = default;

    /// RLX_WRITE_RESULT
    virtual int writeFrame(const RlxFrame& frame) = 0;
    virtual void close() = 0;
    [[nodiscard]] virtual uint64_t bytesWritten() const = 0;
    /// Also after close().
    [[nodiscard]] virtual FrameCounters counters() const = 0;
};

/// Reader or recorder of one RLX file.
/// Threads of a reader: open, close, setPosition, readFrame, skipFrame, getFrameIMU, getFrameIMUPackets and
/// getCurrentMetadata come from the thread that grabs. Beside them, from any threads, come the facts of the open file
/// (v1, v2, every get of the header, hasIMUData, getIMUCamTransform, the pointers included), getCurrentIMU,
/// getCurrentMetadata, frameCount, position, frameTime and counters.
/// Threads of a recorder: create, close, writeCurrentIMU and takeWrittenPackets come from one thread at a time;
/// writeFrame from the recording's own thread beside them; bytesWritten and counters from any.
class RLXVideo {
public:
    virtual ~RLXVideo() = default;

    /// RLX_OPEN_RESULT or kRlxModuleMissing. An open reader is closed first. The file is only read: what merely lacks
    /// its end, because it was cut off or is still being written, is opened with the frames that are there.
    virtual int open(const char* path) = 0;
    virtual void close() = 0;
    /// REPAIR_RESULT or kRlxModuleMissing; any other answer: invalid compression. An empty `out` repairs in place.
    virtual int repairFile(const char* in, const char* out, bool, bool) = 0;
    virtual void setPosition(int frame) = 0;
    virtual int getRLXVersion() = 0;      ///< 0 no file, 1, 2
    virtual IRLXWriter* v1() = 0;         ///< null unless a version-1 file is loaded
    virtual const RlxHeaderV2* v2() = 0;  ///< null unless a version-2 file is loaded

    virtual MODEL getCameraModel() = 0;
    virtual int getCameraFwVersion() = 0;
    virtual int getIMUDataVersion() = 0;
    virtual bool hasIMUData() = 0;
    virtual int getSharpenIntVal() = 0;
    virtual ImuCalibration getImuCalib() = 0;
    virtual RLX_COMPRESSION_MODE getCompressionMode() = 0;
    /// On a version-1 file: false, and one line to standard error.
    virtual bool getDecompressionPlatform() = 0;

    virtual bool getCurrentIMU(IMUPacket& packet) = 0;
    virtual bool getCurrentMetadata(rlxSampleMetadata& metadata) = 0;
    virtual const Matrix4f* getIMUCamTransform() = 0;  ///< null: none recorded
    /// The packets of the current frame, in time order.
    virtual std::vector<IMUPacket> getFrameIMUPackets() = 0;
    /// Recorder: the packet belongs to the next frame.
    virtual void writeCurrentIMU(IMUPacket packet) = 0;

    /// Takes the next frame; it is checked before a byte of `pixels` is written. A damaged frame is counted and
    /// skipped (NO_FRAME). `size` must be width * height * 2.
    [[nodiscard]] virtual FrameStatus readFrame(unsigned char* pixels, std::size_t size, Timestamp& time) = 0;
    /// Whether an open from now on follows a recording that grows: its frames come as they are written.
    virtual void follow(bool /*wanted*/) {}
    /// Of a recording that is followed: behind the last frame more may come. False for good after the end.
    virtual bool mayGrow() { return false; }
    virtual int frameCount() = 0;
    /// Index of the frame that readFrame takes next; frameCount() at the end.
    virtual int position() = 0;
    /// Recorded time of a frame, 0 when there is no such frame.
    virtual Timestamp frameTime(int /*frame*/) { return 0; }
    /// Passes over the next frame: counted as late, its packets join those of the frame after it.
    virtual void skipFrame() {}
    /// The sample taken with the image of the current frame; false when there is none.
    virtual bool getFrameIMU(IMUPacket& /*packet*/) { return false; }
    /// Starts a new file, in place of an existing one: RLX_CREATE_RESULT.
    virtual int create(const char* path, const RlxRecordingHeader& header) = 0;
    /// As create, but never touches an existing file, whoever made it and when: RLX_EXISTS.
    virtual int createNew(const char* path, const RlxRecordingHeader& header) { return create(path, header); }
    /// RLX_WRITE_RESULT.
    virtual int writeFrame(const RlxFrame& frame) = 0;
    /// Recorder: hands out the file begun by create(), which whoever takes it closes; close() here leaves it alone
    /// then. Null: there is none to share, and the recorder outlives all who write.
    virtual std::shared_ptr<RecordingFile> recordingFile() { return nullptr; }
    /// Recorder: appends what writeCurrentIMU stored since the last call to `packets`, in order, and forgets it.
    virtual void takeWrittenPackets(std::vector<IMUPacket>& /*packets*/) {}
    /// Size of the file being written, in bytes.
    virtual uint64_t bytesWritten() { return 0; }
    [[nodiscard]] virtual FrameCounters counters() const = 0;
};

}  // namespace oru::rlxrw
