#pragma once

#include <atomic>

#include "collaborators/RLXVideo.hpp"
#include "collaborators/UDPInput.hpp"
#include "collaborators/UDPOutput.hpp"
#include "oru/Mat.hpp"
#include "oru/types.hpp"
#include "oru_input/mcu/IMUPacket.hpp"
#include "utils/Mutex.hpp"

namespace oru {

/// A view of just those members of a camera that recording and playback may touch. Valid for one call.
struct CameraFrameContext {
    Mat& image;
    Timestamp& currentTimestamp;  ///< stored atomically: any thread may be reading it
    IMUPacket& currentImu;
    Mutex& imuMutex;
    rlxrw::RLXVideo& reader;
    rlxrw::RLXVideo& recorder;
    UDPInput* streamInput;
    UDPOutput* streamOutput;
    std::atomic<bool>& recordingEnabled;
    std::atomic<bool>& streamingEnabled;
    std::atomic<bool>& recordingStateFlag;
    RecordingParameters& parameters;
    RecordingStatus& status;
    unsigned char*& recordingFrameBuffer;
    const InitParametersOne& initParameters;
    const CameraDescription& information;
    const Resolution& imageSize;
};

/// Recording and playback of RLX files for one camera. Threads: as the camera's operations that call it; the per-frame
/// calls come from grab(), the recording's under outputMutex.
class PlaybackRecorder {
public:
    virtual ~PlaybackRecorder() = default;

    /// One attempt to take the next recorded frame: on NEW_FRAME the image, its time and currentImu are those of the
    /// frame.
    [[nodiscard]] virtual FrameStatus nextImageOfRLX(CameraFrameContext camera, bool flag) = 0;
    /// After each grabbed frame while recording or streaming. Never blocks a live camera.
    virtual void handleRLXFrameRecording(CameraFrameContext camera) = 0;
    /// Ends the recording with a whole file; harmless without one.
    virtual void disableRecording(CameraFrameContext camera) = 0;

    /// Starts a recording. `source` tells the facts of the camera (serial, model, firmware, size, rate, flip, IMU);
    /// version, compression, bitrate and calibration text are filled in from the parameters and the calibration source.
    /// @retval INVALID_CALL a recording runs   @retval INVALID_PARAMETER the file exists or cannot be created, no such
    /// mode   @retval RLX_CODEC_UNAVAILABLE no encoder for the mode   Threads: between two grabs.
    virtual ERROR_CODE enableRecording(CameraFrameContext /*camera*/, const RecordingParameters& /*parameters*/,
                                       const rlxrw::RlxRecordingHeader& /*source*/) {
        return NOT_SUPPORTED;
    }
    virtual void pauseRecording(CameraFrameContext /*camera*/, bool /*paused*/) {}
    virtual RecordingStatus getRecordingStatus(CameraFrameContext camera) { return camera.status; }
    virtual ERROR_CODE setRLXPosition(CameraFrameContext /*camera*/, int /*frame*/) { return NOT_SUPPORTED; }
    /// The first frame not earlier than the time.
    virtual ERROR_CODE setRLXPositionAt(CameraFrameContext /*camera*/, Timestamp /*time*/) { return NOT_SUPPORTED; }
    virtual int getRLXPosition(CameraFrameContext /*camera*/) { return 0; }
    virtual int getRLXNumberOfFrames(CameraFrameContext /*camera*/) { return 0; }
    /// Of the recorded input.
    virtual FrameCounters counters(CameraFrameContext camera) { return camera.reader.counters(); }
};

}  // namespace oru
