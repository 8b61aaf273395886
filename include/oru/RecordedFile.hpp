#pragma once

#include <memory>
#include <string>
#include <vector>

#include "oru/Mat.hpp"
#include "oru/export.hpp"
#include "oru/recording.hpp"

namespace oru {

/// A recording without a camera: its facts, its frames and inertial samples as they were recorded; check and repair.
/// Nothing is rectified; for that, play the file with CameraOne. Threads: one at a time.
class ORU_API RecordedFile {
public:
    RecordedFile();
    ~RecordedFile();
    RecordedFile(const RecordedFile&) = delete;
    RecordedFile& operator=(const RecordedFile&) = delete;

    /// Reads head and index; an open file is closed first. The file is only read. One that merely lacks its end,
    /// because it was cut off or is still being written, is open with the frames that are there, and condition() says
    /// so. With `follow` it goes on as it grows: more frames come, and END_OF_INPUT only when it is finished or nothing
    /// has come for five seconds.
    /// @retval RLX_FILE_UNREADABLE not open: condition() says why; facts() holds where a head could be read
    /// @retval RLX_CODEC_UNAVAILABLE open, but this machine cannot decode the images: readFrame answers INVALID_CALL
    /// @retval NOT_SUPPORTED this installation has no part for recordings
    ERROR_CODE open(const String& path, bool follow = false);
    void close();
    [[nodiscard]] RECORDING_CONDITION condition() const;
    [[nodiscard]] const RecordingFacts& facts() const;

    // Frames are numbered from 0; of a file that is not open there are none.
    [[nodiscard]] int frameCount() const;
    /// When a frame was taken; 0 where there is no such frame.
    [[nodiscard]] Timestamp frameTime(int frame) const;
    /// The first frame that was taken at `time` or later; frameCount() when there is none.
    [[nodiscard]] int frameAt(Timestamp time) const;

    /// The frame that readFrame takes next; frameCount() at the end.
    [[nodiscard]] int position() const;
    void setPosition(int frame);
    /// Takes the next frame as U8_C2 (packed YUYV) in host memory, with its time; checked before it is written.
    /// @retval CAMERA_NOT_READY none within a fifth of a second, or a damaged one was left out: ask again
    /// @retval END_OF_INPUT no further frame   @retval INVALID_CALL no image can be read   @retval FAILURE
    ERROR_CODE readFrame(Mat& image);
    /// Of the frame read last, in time order, with those of frames that were left out before it.
    [[nodiscard]] std::vector<RecordedSample> samples() const;
    /// What was recorded with a frame; its image is not decoded. Empty where frame or record is damaged.
    [[nodiscard]] std::vector<RecordedSample> samplesOf(int frame) const;
    /// Every whole sample from `first` to `last`, both included, in time order.
    [[nodiscard]] std::vector<RecordedSample> samplesBetween(Timestamp first, Timestamp last) const;
    /// Where the frames that readFrame came past went.
    [[nodiscard]] FrameCounters getFrameCounters() const;

    /// Checks every byte of a file, which is only read.
    [[nodiscard]] static RecordingCheck verify(const String& path, const RecordingProgress& progress = {});
    /// Makes every whole frame of a damaged file playable again, in place when `output` is empty. A file that is
    /// intact, cannot be repaired or holds no whole frame stays untouched, and so does one whose repair is stopped. An
    /// existing output is refused. Whenever it is interrupted the file can still be repaired.
    [[nodiscard]] static RecordingRepair repair(const String& path, const String& output,
                                                const RecordingProgress& progress = {});

private:
    friend class RecordedFileWriter;
    struct Opened;

    std::unique_ptr<Opened> opened;
};

/// Writes frames of one recording into another, with everything that was recorded with them. Threads: one at a time.
class ORU_API RecordedFileWriter {
public:
    RecordedFileWriter();
    /// Closes the file.
    ~RecordedFileWriter();
    RecordedFileWriter(const RecordedFileWriter&) = delete;
    RecordedFileWriter& operator=(const RecordedFileWriter&) = delete;

    /// Begins a file with the facts of `source` but for the compression; an existing one is replaced. A name that ends
    /// in .rlx gets version 1 of the format, every other one version 2.
    /// @retval RLX_CODEC_UNAVAILABLE no encoder for the mode   @retval INVALID_PARAMETER the file cannot be created
    /// @retval INVALID_CALL `source` is not open   @retval NOT_SUPPORTED as RecordedFile::open
    ERROR_CODE create(const String& path, const RecordedFile& source, RLX_COMPRESSION_MODE mode);
    /// Writes `image`, which `source` read last, and what was recorded with it; with it go the inertial samples of the
    /// frames that `source` read since the last one written.
    /// @retval INVALID_PARAMETER not an image of the source's size in U8_C2   @retval FAILURE the file cannot grow
    ERROR_CODE write(const Mat& image, RecordedFile& source);
    /// Ends the file: playable, if need be without its last frames when the disk is full.
    void close();

private:
    struct Created;

    std::unique_ptr<Created> created;
};

}  // namespace oru
