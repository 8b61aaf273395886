#include <atomic>
#include <cstdio>

#include "backends/rlx/file/FilePlayer.hpp"
#include "backends/rlx/file/FileRecorder.hpp"
#include "backends/rlx/file/guarded.hpp"
#include "backends/rlx/file/repair.hpp"
#include "backends/rlx/rlx_factory.hpp"
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
    void set(const RlxRecordingHeader& facts) { headerFacts = &facts; }
    int getSerialNumber() override { return headerFacts->serial_number; }
    int getWidth() override { return static_cast<int>(headerFacts->width); }
    int getHeight() override { return static_cast<int>(headerFacts->height); }
    float getfps() override { return headerFacts->fps; }
    int getType() override { return headerFacts->compression_mode; }

private:
    const RlxRecordingHeader* headerFacts = nullptr;
};

class RlxFile final : public rlxrw::RLXVideo {
public:
    explicit RlxFile(CalibrationSource& calibration) : calibrationSource(calibration) {}

    int open(const char* path) override;
    void close() override;
    int repairFile(const char* in, const char* out, bool reopen, bool allImages) override;
    void setPosition(int frame) override { player.setPosition(frame); }
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

    bool getCurrentIMU(IMUPacket& packet) override { return player.newestImu(packet); }
    bool getCurrentMetadata(rlxrw::rlxSampleMetadata& metadata) override { return player.metadata(metadata); }
    const Matrix4f* getIMUCamTransform() override;
    std::vector<IMUPacket> getFrameIMUPackets() override {
        return rlx::guarded("Reading the packets", std::vector<IMUPacket>{}, [&] { return player.packets(); });
    }
    bool getFrameIMU(IMUPacket& packet) override { return player.imuOfImage(packet); }

    FrameStatus readFrame(unsigned char* pixels, std::size_t size, Timestamp& time) override {
        return rlx::guarded("Reading a frame", SOURCE_ERROR, [&] { return player.readFrame(pixels, size, time); });
    }
    void follow(bool wanted) override { followsNext = wanted; }
    bool mayGrow() override { return player.mayGrow(); }
    int frameCount() override { return player.frameCount(); }
    int position() override { return player.position(); }
    Timestamp frameTime(int frame) override { return player.frameTime(frame); }
    void skipFrame() override {
        rlx::guarded("Skipping a frame", [this] { player.skipFrame(); });
    }

    int create(const char* path, const RlxRecordingHeader& header) override {
        return startRecording(path, header, rlx::FileRecorder::Existing::REPLACE);
    }
    int createNew(const char* path, const RlxRecordingHeader& header) override {
        return startRecording(path, header, rlx::FileRecorder::Existing::REFUSE);
    }
    int writeFrame(const rlxrw::RlxFrame& frame) override { return recorder->writeFrame(frame); }
    std::shared_ptr<rlxrw::RecordingFile> recordingFile() override;
    void writeCurrentIMU(IMUPacket packet) override;
    void takeWrittenPackets(std::vector<IMUPacket>& packets) override;
    uint64_t bytesWritten() override { return recorder->bytesWritten(); }
    FrameCounters counters() const override { return countsRecording ? recorder->counters() : player.counters(); }

private:
    int load(const char* path);
    int repair(const char* in, const char* out, bool reopen, bool allImages);
    int startRecording(const char* path, const RlxRecordingHeader& header, rlx::FileRecorder::Existing existing);
    bool isOpen() const { return player.isOpen() || recording; }
    const RlxRecordingHeader& facts() const;

    CalibrationSource& calibrationSource;
    rlx::FilePlayer player;
    std::shared_ptr<rlx::FileRecorder> recorder = std::make_shared<rlx::FileRecorder>();  // replaced once handed out
    bool handedOut = false;
    bool followsNext = false;
    std::atomic<bool> recording{false};
    std::atomic<bool> countsRecording{false};  // a recorder's counts are told even after close()
    RlxRecordingHeader noFacts;
    VersionOneFacts versionOne;
    RlxHeaderV2 versionTwo;
    Mutex packetsMutex;
    std::vector<IMUPacket> writtenPackets ORU_GUARDED_BY(packetsMutex);
};

const RlxRecordingHeader& RlxFile::facts() const {
    if (player.isOpen()) {
        return player.header().facts;
    }
    return recording ? recorder->header().facts : noFacts;
}

int RlxFile::open(const char* path) {
    close();
    const int result = rlx::guarded<int>("Opening", rlxrw::RLX_DAMAGED, [&] { return load(path); });
    if (result != rlxrw::RLX_OPENED) {
        player.close();
    }
    return result;
}

int RlxFile::load(const char* path) {
    countsRecording = false;
    const int result = player.open(path, followsNext);
    if (result == rlxrw::RLX_OPENED) {
        const RlxRecordingHeader& head = facts();
        versionOne.set(head);
        versionTwo = {head.serial_number, static_cast<int>(head.width), static_cast<int>(head.height),
                      head.fps,           head.decompression_platform,  head.flipped};
        calibrationSource.offerFrom(CalibrationOrigin::RECORDING, path, head.serial_number, head.calibration_text);
    }
    return result;
}

void RlxFile::close() {
    player.close();
    if (!handedOut) {
        recorder->close();
    }
    recording = false;
    const MutexLock lock(packetsMutex);
    writtenPackets.clear();
}

int RlxFile::repairFile(const char* in, const char* out, bool reopen, bool allImages) {
    return rlx::guarded<int>("The repair", REPAIR_UNREADABLE, [&] { return repair(in, out, reopen, allImages); });
}

int RlxFile::repair(const char* in, const char* out, bool reopen, bool allImages) {
    const auto check = allImages ? rlx::ImageCheck::ALL : rlx::ImageCheck::TAIL;
    std::string original;
    const RecordingRepair report = rlx::repairRecording(in, out, check, {}, &original);
    if (report.result != REPAIR_DONE) {
        ORU_LOG(Warning, "{} {} {} and was not repaired", kTagInit, in, describe(report.condition));
        return report.result;
    }
    ORU_LOG(Warning, "{} {} {} and was repaired: {} frames kept, {} lost, {} bytes behind them cut off{}{}", kTagInit,
            in, describe(report.condition), report.frames_recovered, report.frames_lost, report.bytes_cut,
            original.empty() ? "" : "; as it was it lies in ", original);
    if (reopen) {
        rlx::OpenedFile repaired = rlx::openRecording(out[0] != '\0' ? out : in, false);
        std::vector<rlx::IndexEntry> entries;
        const bool whole =
            repaired.condition == rlx::Condition::INTACT && rlx::loadIndex(repaired, entries) == rlx::Condition::INTACT;
        return whole ? REPAIR_DONE : REPAIR_UNREADABLE;
    }
    return REPAIR_DONE;
}

rlxrw::IRLXWriter* RlxFile::v1() {
    return player.isOpen() && facts().version == 1 ? &versionOne : nullptr;
}

const RlxHeaderV2* RlxFile::v2() {
    return player.isOpen() && facts().version == 2 ? &versionTwo : nullptr;
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

int RlxFile::startRecording(const char* path, const RlxRecordingHeader& header, rlx::FileRecorder::Existing existing) {
    close();
    const int result = rlx::guarded<int>("Creating the file", rlxrw::RLX_NOT_CREATABLE, [&] {
        if (handedOut) {
            recorder = std::make_shared<rlx::FileRecorder>();
            handedOut = false;
        }
        return recorder->create(path, header, existing);
    });
    recording = result == rlxrw::RLX_CREATED;
    countsRecording = true;
    return result;
}

std::shared_ptr<rlxrw::RecordingFile> RlxFile::recordingFile() {
    handedOut = true;
    return recorder;
}

void RlxFile::writeCurrentIMU(IMUPacket packet) {
    rlx::guarded("Keeping a packet", [&] {
        const MutexLock lock(packetsMutex);
        if (writtenPackets.size() < kMaxWaitingPackets) {
            writtenPackets.push_back(packet);
        }
    });
}

void RlxFile::takeWrittenPackets(std::vector<IMUPacket>& packets) {
    rlx::guarded("Taking the packets", [&] {
        const MutexLock lock(packetsMutex);
        packets.insert(packets.end(), writtenPackets.begin(), writtenPackets.end());
        writtenPackets.clear();
    });
}

}  // namespace

std::unique_ptr<rlxrw::RLXVideo> makeRlxVideo(CalibrationSource& calibration) {
    return std::make_unique<RlxFile>(calibration);
}

}  // namespace oru
