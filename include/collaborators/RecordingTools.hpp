#pragma once

#include <memory>
#include <string>
#include <vector>

#include "collaborators/RLXVideo.hpp"
#include "oru/recording.hpp"

namespace oru {

/// Head, index and records of one recording; no image is decoded. The file stays locked against changes.
/// Threads: one at a time.
class RecordingIndex {
public:
    virtual ~RecordingIndex() = default;

    [[nodiscard]] virtual RECORDING_CONDITION condition() const = 0;
    /// Version 0 when no head could be read.
    [[nodiscard]] virtual const rlxrw::RlxRecordingHeader& header() const = 0;
    /// Intact, or only without its end; then condition() says why.
    [[nodiscard]] virtual bool isPlayable() const = 0;
    /// Of the frames that were there when it was opened; empty unless the recording is playable.
    [[nodiscard]] virtual const std::vector<Timestamp>& frameTimes() const = 0;
    /// The packets stored with a frame, also one that has come since; empty where its record is damaged.
    [[nodiscard]] virtual std::vector<IMUPacket> packets(int frame) = 0;
};

/// Codes packed YUYV images into a file for players. After a failure error() says why. Threads: one at a time.
class VideoWriter {
public:
    virtual ~VideoWriter() = default;

    /// SUCCESS, INVALID_PARAMETER, RLX_CODEC_UNAVAILABLE or FAILURE. Takes size, rate, mode and bit rate.
    [[nodiscard]] virtual ERROR_CODE open(const std::string& path, const rlxrw::RlxRecordingHeader& facts) = 0;
    [[nodiscard]] virtual bool write(const unsigned char* pixels, Timestamp time) = 0;
    [[nodiscard]] virtual bool finish() = 0;
    [[nodiscard]] virtual const std::string& error() const = 0;
};

/// Work on recordings that needs no camera. Threads: any.
class RecordingTools {
public:
    virtual ~RecordingTools() = default;

    /// Never null.
    [[nodiscard]] virtual std::unique_ptr<RecordingIndex> openIndex(const std::string& path) = 0;
    [[nodiscard]] virtual RecordingCheck verify(const std::string& path, const RecordingProgress& progress) = 0;
    /// An empty `output` repairs in place.
    [[nodiscard]] virtual RecordingRepair repair(const std::string& path, const std::string& output,
                                                 const RecordingProgress& progress) = 0;
    [[nodiscard]] virtual std::unique_ptr<VideoWriter> makeVideoWriter() = 0;
};

}  // namespace oru
