#pragma once

#include <memory>

#include "oru/Mat.hpp"
#include "oru/String.hpp"
#include "oru/export.hpp"
#include "oru/types.hpp"

namespace oru {

struct VideoFileParameters {
    Resolution size;
    float fps = 30.0F;                                 ///< usual rate; each frame keeps its own time
    RLX_COMPRESSION_MODE compression_mode = RLX_H264;  ///< or RLX_H265
    uint32_t bitrate = 0;                              ///< kbit/s; 0: constant quality
};

/// Writes an MP4 file with one H.264 or H.265 track, for players. No inertial samples.
/// After a failure error() says why and only close() makes sense. Threads: one at a time.
class ORU_API VideoFileWriter {
public:
    VideoFileWriter();
    /// A file that close() did not end cannot be played.
    ~VideoFileWriter();
    VideoFileWriter(const VideoFileWriter&) = delete;
    VideoFileWriter& operator=(const VideoFileWriter&) = delete;

    /// Begins a file; an existing one is replaced.
    /// @retval INVALID_PARAMETER no such compression in an MP4 file   @retval RLX_CODEC_UNAVAILABLE no encoder for it
    /// @retval FAILURE the file cannot be created   @retval NOT_SUPPORTED this installation has no part for recordings
    ERROR_CODE open(const String& path, const VideoFileParameters& parameters);
    /// Takes a U8_C2 image (packed YUYV) of the file's size in host memory; its timestamp is when it is shown,
    /// counted from that of the first one.
    /// @retval INVALID_CALL not open   @retval INVALID_PARAMETER another size or type   @retval FAILURE
    ERROR_CODE write(const Mat& image);
    /// Ends the file.
    /// @retval INVALID_CALL not open   @retval FAILURE
    ERROR_CODE close();
    /// What failed, in words; empty while nothing has.
    [[nodiscard]] String error() const;

private:
    struct Opened;

    std::unique_ptr<Opened> opened;
};

}  // namespace oru
