#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <thread>
#include <vector>

#include "coded_queue.hpp"
#include "collaborators/CalibrationSource.hpp"
#include "collaborators/UDPInput.hpp"
#include "frame_intake.hpp"
#include "frame_ledger.hpp"
#include "imu_store.hpp"
#include "picture_ring.hpp"
#include "stream_link.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"
#include "video_decoder.hpp"

namespace oru::stream {

/// The receiving end: a thread that keeps the connection and one that decodes. See UDPInput for who may call what.
class StreamReceiver final : public UDPInput {
public:
    StreamReceiver(Clock& clock, CalibrationSource& calibration, std::unique_ptr<rlxrw::RLXVideo> recorder,
                   bool verbose);
    ~StreamReceiver() override;

    int open(String ip, unsigned short port, int unused) override;
    bool readStreamData(unsigned char* image, unsigned char* second) override;
    Timestamp frameTimestamp() override { return frame_.timestamp; }
    bool frameHasMetadata() override { return frame_.has_metadata; }
    rlxrw::rlxSampleMetadata frameMetadata() override { return frame_.metadata; }
    StreamDescription description() override;
    int announcedFps() override;
    StreamImuPose announcedImuPose() override;
    int versionByte() override;
    bool canSupplyCurrentImu() override;
    bool getCurrentIMU(IMUPacket& packet) override { return samples_.newest(packet); }
    std::vector<IMUPacket> takeImuPacketsBefore(Timestamp time) override { return samples_.takeBefore(time); }
    rlxrw::RLXVideo& recorder() override { return *recorder_; }
    [[nodiscard]] FrameCounters counters() const override { return ledger_.counters(); }
    bool valueRange(VIDEO_SETTINGS setting, int& min, int& max) override;
    int getGrabberSettingsValue(VIDEO_SETTINGS setting) override;
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, int value, bool automatic) override;
    int getGrabberSettingsValue(VIDEO_SETTINGS setting, int side, Rect& region) override;
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, int side, Rect region, bool reset) override;

private:
    void close();
    [[nodiscard]] bool awaitDescription(uint64_t deadline);
    void adopt(DescriptionRecord&& record);
    void decodeLoop();
    void decodePicture(CodedPicture& picture);
    [[nodiscard]] bool prepareDecoder(VideoCodec codec);
    void lose(FrameLedger::Cause cause);
    void setPatience(int fps);

    Clock& clock_;
    CalibrationSource& calibration_;
    std::unique_ptr<rlxrw::RLXVideo> recorder_;
    bool verbose_;

    FrameLedger ledger_;
    ImuStore samples_;
    CodedQueue queue_;
    PictureRing pictures_;
    FrameFacts frame_;  // of the caller's thread

    mutable Mutex mutex_;
    std::condition_variable_any described_;
    DescriptionRecord description_ ORU_GUARDED_BY(mutex_);
    bool haveDescription_ ORU_GUARDED_BY(mutex_) = false;
    bool sizeWarned_ ORU_GUARDED_BY(mutex_) = false;

    VideoDecoder decoder_;  // of the decoding thread
    bool needsKey_ = true;
    uint32_t width_ = 0;
    uint32_t height_ = 0;
    bool opened_ = false;
    std::atomic<bool> stop_{false};

    StreamLink link_;
    FrameIntake intake_;
    std::thread decoding_;
};

}  // namespace oru::stream
