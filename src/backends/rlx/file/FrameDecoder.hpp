#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "backends/rlx/file/codec.hpp"
#include "backends/rlx/file/open_recording.hpp"

namespace oru::rlx {

enum class FrameQuality {
    WHOLE,
    DAMAGED,        ///< its bytes, or those of an image it builds on, are not those that were recorded
    DECODE_FAILED,  ///< the bytes are right, the decoder refuses them; or there was no memory for it
};

/// One frame taken out of a recording; what is reusable keeps its capacity.
struct DecodedFrame {
    int index = -1;
    FrameQuality quality = FrameQuality::DAMAGED;
    bool record_whole = false;  ///< time, metadata and packets hold
    Timestamp time = 0;
    rlxrw::rlxSampleMetadata metadata{};
    bool has_imu = false;
    IMUPacket imu;
    std::vector<IMUPacket> packets;
    Bytes pixels;  ///< YUYV; hold when WHOLE
};

/// Frames of an open recording by index, each checked before it is decoded. Threads: one at a time.
class FrameDecoder {
public:
    /// Both outlive the decoder.
    FrameDecoder(const OpenedFile& recording, const std::vector<IndexEntry>& entries,
                 std::unique_ptr<ImageDecoder> decoder);

    /// Reads forward from where the last call ended when that is shorter than from the key image before `index`. False:
    /// `interrupted` was set on the way, `out` holds nothing. Throws nothing.
    [[nodiscard]] bool decode(int index, DecodedFrame& out, const std::atomic<bool>& interrupted) noexcept;

private:
    [[nodiscard]] bool goTo(int index, DecodedFrame& out, const std::atomic<bool>& interrupted);
    void step(int index, DecodedFrame* out);
    void describe(DecodedFrame& out) const;
    [[nodiscard]] int keyBefore(int index) const;

    const OpenedFile& openedFile;
    const std::vector<IndexEntry>& indexEntries;
    std::unique_ptr<ImageDecoder> imageDecoder;
    bool intraOnly;
    StoredFrame stored;
    int next = 0;             // the frame that the decoder is ready for
    bool chainWhole = false;  // every image since the last key one was decoded
    uint64_t nextNumber = 0;
};

}  // namespace oru::rlx
