#include <algorithm>
#include <atomic>
#include <cstdio>

#include "backends/rlx/FilePlayer.hpp"
#include "backends/rlx/FileRecorder.hpp"
#include "backends/rlx/Rlx.hpp"
#include "backends/rlx/repair.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru {

namespace {

using rlxrw::RlxHeaderV2;
using rlxrw::RlxRecordingHeader;

/// Packets that wait for a frame; a recorder that gets no frames keeps no more.
constexpr std::size_t kMaxWaitingPackets = 16'384;

class VersionOneFacts final : public rlxrw::IRLXWriter {
public:
    void set(const RlxRecordingHeader& facts) { facts_ = &facts; }
    int getSerialNumber() override { return facts_->serial_number; }
    int getWidth() override { return static_cast<int>(facts_->width); }
    int getHeight() override { return static_cast<int>(facts_->height); }
    float getfps() override { return facts_->fps; }
    int getType() override { return facts_->compression_mode; }

private:
    const RlxRecordingHeader* facts_ = nullptr;
};

class RlxFile final : public rlxrw::RLXVideo {
public:
    explicit RlxFile(CalibrationSource& calibration) : calibration_(calibration) {}

    int open(const char* path) override;
    void close() override;
    int repairFile(const char* in, const char* out, bool reopen, bool all_pictures) override;
    void setPosition(int frame) override { player_.setPosition(frame); }
    int getRLXVersion() override { return isOpen() ? facts().version : 0; }
    rlxrw::IRLXWriter* v1() override;
    const RlxHeaderV2* v2() override;

    MODEL getCameraModel() override { return facts().model; }
    int getCameraFwVersion() override { return static_cast<int>(facts().camera_fw); }
    int getIMUDataVersion() override { return static_cast<int>(facts().imu_data_version); }
    bool hasIMUData() override { return facts().has_imu; }
    int getSharpenIntVal() override { return facts().sharpness; }
    ImuCalibration getImuCalib() override { return facts().imu_calibration; }
    RLX_COMPRESSION_MODE getCompressionMode() override { return facts().compression_mode; }
    bool getDecompressionPlatform() override;

    bool getCurrentIMU(IMUPacket& packet) override { return player_.newestImu(packet); }
    bool getCurrentMetadata(rlxrw::rlxSampleMetadata& metadata) override { return player_.metadata(metadata); }
    const Matrix4f* getIMUCamTransform() override;
    std::vector<IMUPacket> getFrameIMUPackets() override { return player_.packets(); }
    bool getFrameIMU(IMUPacket& packet) override { return player_.imuOfImage(packet); }

    FrameStatus readFrame(unsigned char* pixels, std::size_t size, Timestamp& time) override {
        return player_.readFrame(pixels, size, time);
    }
    int frameCount() override { return player_.frameCount(); }
    int position() override { return player_.position(); }
    Timestamp frameTime(int frame) override { return player_.frameTime(frame); }
    void skipFrame() override { player_.skipFrame(); }

    int create(const char* path, const RlxRecordingHeader& header) override;
    int writeFrame(const rlxrw::RlxFrame& frame) override { return recorder_.writeFrame(frame); }
    void writeCurrentIMU(IMUPacket packet) override;
    void takeWrittenPackets(std::vector<IMUPacket>& packets) override;
    uint64_t bytesWritten() override { return recorder_.bytesWritten(); }
    FrameCounters counters() const override;

private:
    bool isOpen() const { return player_.isOpen() || recording_; }
    const RlxRecordingHeader& facts() const;

    CalibrationSource& calibration_;
    rlx::FilePlayer player_;
    rlx::FileRecorder recorder_;
    std::atomic<bool> recording_{false};
    std::atomic<bool> counts_recording_{false};  // a recorder's counts are told even after close()
    RlxRecordingHeader none_;
    VersionOneFacts version_one_;
    RlxHeaderV2 version_two_;
    Mutex packets_mutex_;
    std::vector<IMUPacket> packets_ ORU_GUARDED_BY(packets_mutex_);
};

const RlxRecordingHeader& RlxFile::facts() const {
    if (player_.isOpen()) {
        return player_.header().facts;
    }
    return recording_ ? recorder_.header().facts : none_;
}

int RlxFile::open(const char* path) {
    close();
    counts_recording_ = false;
    const int result = player_.open(path);
    if (result == 0) {
        const RlxRecordingHeader& head = facts();
        version_one_.set(head);
        version_two_ = {head.serial_number, static_cast<int>(head.width), static_cast<int>(head.height),
                        head.fps,           head.decompression_platform,  head.flipped};
        if (!head.calibration_text.empty()) {
            calibration_.offer(head.serial_number, head.calibration_text);
        }
    }
    return result;
}

void RlxFile::close() {
    player_.close();
    recorder_.close();
    recording_ = false;
    const MutexLock lock(packets_mutex_);
    packets_.clear();
}

int RlxFile::repairFile(const char* in, const char* out, bool reopen, bool all_pictures) {
    const auto check = all_pictures ? rlx::PictureCheck::ALL : rlx::PictureCheck::TAIL;
    const rlx::RepairReport report = rlx::repairRecording(in, out, check);
    if (report.code != 0) {
        ORU_LOG(Warning, "{} {} {} and was not repaired", kTagInit, in, rlx::describe(report.condition));
        return report.code;
    }
    ORU_LOG(Info, "{} {} was repaired: {} frames recovered, {} lost, {} bytes behind them cut off", kTagInit, in,
            report.frames_recovered, report.frames_lost, report.bytes_cut);
    if (reopen) {
        rlx::OpenedFile repaired = rlx::openRecording(out[0] != '\0' ? out : in, false);
        std::vector<rlx::IndexEntry> entries;
        const bool whole =
            repaired.condition == rlx::Condition::INTACT && rlx::loadIndex(repaired, entries) == rlx::Condition::INTACT;
        return whole ? 0 : 1;
    }
    return 0;
}

rlxrw::IRLXWriter* RlxFile::v1() {
    return player_.isOpen() && facts().version == 1 ? &version_one_ : nullptr;
}

const RlxHeaderV2* RlxFile::v2() {
    return player_.isOpen() && facts().version == 2 ? &version_two_ : nullptr;
}

bool RlxFile::getDecompressionPlatform() {
    if (facts().version == 1 && isOpen()) {
        std::fputs("[RLX] wrong function call <getDecompressionPlatform>\n", stderr);
        return false;
    }
    return facts().decompression_platform;
}

const Matrix4f* RlxFile::getIMUCamTransform() {
    const RlxRecordingHeader& head = facts();
    return head.has_imu_to_camera ? &head.imu_to_camera : nullptr;
}

int RlxFile::create(const char* path, const RlxRecordingHeader& header) {
    close();
    const int result = recorder_.create(path, header);
    recording_ = result == 0;
    counts_recording_ = true;
    return result;
}

void RlxFile::writeCurrentIMU(IMUPacket packet) {
    const MutexLock lock(packets_mutex_);
    if (packets_.size() < kMaxWaitingPackets) {
        packets_.push_back(packet);
    }
}

void RlxFile::takeWrittenPackets(std::vector<IMUPacket>& packets) {
    const MutexLock lock(packets_mutex_);
    packets.insert(packets.end(), packets_.begin(), packets_.end());
    packets_.clear();
}

FrameCounters RlxFile::counters() const {
    if (!counts_recording_) {
        return player_.counters();
    }
    FrameCounters counters;
    counters.delivered = recorder_.framesWritten();
    counters.queue_full = std::max(recorder_.framesOffered(), counters.delivered) - counters.delivered;
    counters.produced = counters.delivered + counters.queue_full;
    return counters;
}

}  // namespace

std::unique_ptr<rlxrw::RLXVideo> makeRlxVideo(CalibrationSource& calibration) {
    return std::make_unique<RlxFile>(calibration);
}

}  // namespace oru
