#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "collaborators/RLXVideo.hpp"
#include "utils/bytes.hpp"

namespace oru::rlx {

/// One coded image as it is stored in a Block.
struct CodedImage {
    ByteView bytes;  ///< valid for the call
    bool key = true;
    uint64_t number = 0;  ///< of the frame it codes
};
/// Returns false to stop.
using CodedSink = std::function<bool(const CodedImage&)>;

/// Codes YUYV images of one size; images come out in the order they went in, possibly later.
/// Threads: one at a time.
class ImageEncoder {
public:
    virtual ~ImageEncoder() = default;

    /// What the track's CodecPrivate holds; complete from the start.
    [[nodiscard]] virtual const Bytes& codecPrivate() const = 0;
    /// False when the encoder failed or the sink stopped it.
    [[nodiscard]] virtual bool encode(const unsigned char* yuyv, uint64_t number, const CodedSink& sink) = 0;
    /// Hands out what is still inside.
    [[nodiscard]] virtual bool finish(const CodedSink& sink) = 0;
};

/// The first encoder of this mode that opens here, hardware before software, by name; null when there is none or the
/// mode or size is none that can be coded. RLX_RAW has its own, which hands the image through.
[[nodiscard]] std::unique_ptr<ImageEncoder> makeEncoder(const rlxrw::RlxRecordingHeader& header);

/// Decodes stored images to YUYV. After a failure or a gap, reset() and begin with a key image. Threads: one at a
/// time.
class ImageDecoder {
public:
    virtual ~ImageDecoder() = default;

    /// Fills `yuyv` with width * height * 2 bytes once the image is known to have this size; null decodes without
    /// writing. False: `yuyv` is untouched, the decoder refuses the image.
    [[nodiscard]] virtual bool decode(ByteView stored, Bytes* yuyv) = 0;
    virtual void reset() = 0;
};

/// Null when this machine cannot decode the recording's compression.
[[nodiscard]] std::unique_ptr<ImageDecoder> makeDecoder(const rlxrw::RlxRecordingHeader& header, ByteView codecPrivate);

/// Whether every image is coded by itself.
[[nodiscard]] bool isIntraOnly(RLX_COMPRESSION_MODE mode);

}  // namespace oru::rlx
