#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "backends/rlx/file/codec.hpp"
#include "coding/Mp4Muxer.hpp"
#include "collaborators/RecordingTools.hpp"

namespace oru::rlx {

/// An MP4 file with one H.264 or H.265 track, for players; times in microseconds from the first frame. No samples.
class VideoFile final : public VideoWriter {
public:
    VideoFile();

    ERROR_CODE open(const std::string& path, const rlxrw::RlxRecordingHeader& facts) override;
    bool write(const unsigned char* pixels, Timestamp time) override;
    bool finish() override;
    const std::string& error() const override { return muxer.error().empty() ? failure : muxer.error(); }

private:
    static constexpr std::size_t kHeldTimes = 64;

    coding::Mp4Muxer muxer;
    std::unique_ptr<ImageEncoder> imageEncoder;
    CodedSink sink;
    std::array<int64_t, kHeldTimes> timesUs{};  // of the frames that the encoder may still hold, by number
    uint64_t frameCount = 0;
    Timestamp firstTime = 0;
    int64_t lastTimeUs = -1;
    std::string failure;
};

}  // namespace oru::rlx
