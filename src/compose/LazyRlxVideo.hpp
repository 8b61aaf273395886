#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "collaborators/CalibrationSource.hpp"
#include "collaborators/RLXVideo.hpp"

namespace oru {

/// A reader or recorder that loads the recording module at the first open, create or repair, and answers as a closed
/// one before. Without the module these answer kRlxModuleMissing. Threads: as RLXVideo says.
class LazyRlxVideo final : public rlxrw::RLXVideo {
public:
    explicit LazyRlxVideo(CalibrationSource& calibration) : calibrationSource(calibration) {}

    int open(const char* path) override;
    void close() override;
    int repairFile(const char* in, const char* out, bool reopen, bool allImages) override;
    void setPosition(int frame) override;
    int getRLXVersion() override;
    rlxrw::IRLXWriter* v1() override;
    const rlxrw::RlxHeaderV2* v2() override;

    MODEL getCameraModel() override;
    int getCameraFwVersion() override;
    int getIMUDataVersion() override;
    bool hasIMUData() override;
    int getSharpenIntVal() override;
    ImuCalibration getImuCalib() override;
    RLX_COMPRESSION_MODE getCompressionMode() override;
    bool getDecompressionPlatform() override;

    bool getCurrentIMU(IMUPacket& packet) override;
    bool getCurrentMetadata(rlxrw::rlxSampleMetadata& metadata) override;
    const Matrix4f* getIMUCamTransform() override;
    std::vector<IMUPacket> getFrameIMUPackets() override;
    bool getFrameIMU(IMUPacket& packet) override;
    void writeCurrentIMU(IMUPacket packet) override;

    FrameStatus readFrame(unsigned char* pixels, std::size_t size, Timestamp& time) override;
    void follow(bool wanted) override;
    bool mayGrow() override;
    int frameCount() override;
    int position() override;
    Timestamp frameTime(int frame) override;
    void skipFrame() override;

    int create(const char* path, const rlxrw::RlxRecordingHeader& header) override;
    int createNew(const char* path, const rlxrw::RlxRecordingHeader& header) override;
    int writeFrame(const rlxrw::RlxFrame& frame) override;
    std::shared_ptr<rlxrw::RecordingFile> recordingFile() override;
    void takeWrittenPackets(std::vector<IMUPacket>& packets) override;
    uint64_t bytesWritten() override;
    FrameCounters counters() const override;

private:
    /// Null before the module was needed.
    [[nodiscard]] rlxrw::RLXVideo* made() const { return published.load(std::memory_order_acquire); }
    /// Null without the module.
    rlxrw::RLXVideo* needed();

    CalibrationSource& calibrationSource;
    bool follows = false;  // told before the module was needed
    std::unique_ptr<rlxrw::RLXVideo> video;
    std::atomic<rlxrw::RLXVideo*> published{nullptr};  // counters() may come while open() makes it
};

}  // namespace oru
