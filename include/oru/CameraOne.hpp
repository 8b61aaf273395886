#pragma once

#include <memory>
#include <vector>

#include "oru/Mat.hpp"
#include "oru/export.hpp"
#include "oru/types.hpp"

namespace oru {

class CameraOneImpl;
class CameraSlot;

/// One monocular camera: a live camera, a recorded file or a network stream behind one loop:
/// open(), then grab() and retrieveImage() for each frame, then close().
/// Each opening starts anew: nothing of the one before survives but what is set for all of them, the keys of streams.
/// Threads, as docs/threading.md lists them: one thread grabs, retrieves, starts and stops; beside it any threads ask,
/// one of them reads sensors, one uses controls. open() and close() may come from any thread: they let the operations
/// that run on others end first, and an operation that comes later finds the camera closed. No operation throws: what
/// goes wrong inside answers FAILURE, or an empty value, and logs one Error line. An operation that needs an open
/// camera and finds it closed answers CAMERA_UNAVAILABLE, or an empty value; all but grab() and retrieveImage() log one
/// Error line then.
class ORU_API CameraOne {
public:
    CameraOne();
    /// Closes the camera and stops its stream and recording.
    ~CameraOne();
    CameraOne(const CameraOne&) = delete;
    CameraOne& operator=(const CameraOne&) = delete;
    /// Takes over an opening as it stands; `other` can then only be destroyed or assigned to. No operation may run on
    /// either of the two.
    CameraOne(CameraOne&& other) noexcept;
    CameraOne& operator=(CameraOne&& other) noexcept;

    /// Opens the input that the parameters name. An empty `settings_path` becomes $XDG_DATA_HOME (or ~/.local/share)
    /// plus "/koru/settings/", made when missing; a directory may lack the "/" at its end. Where nothing can be stored,
    /// a calibration is kept for this opening. Opening an open camera closes it first; where open() fails, the camera
    /// is closed.
    /// @param choice of the calibration of a recording or a stream
    /// @retval INVALID_PARAMETER the input names an id or a serial number that no camera can have
    /// @retval CONFIGURATION_ADJUSTED not open: the HDR mode was changed, open again with getInitParameters()
    /// @retval DEVICE_NOT_FOUND, CAMERA_IN_USE, RESOLUTION_NOT_SUPPORTED, CALIBRATION_MISSING, CALIBRATION_INCOMPLETE,
    ///   RLX_FILE_UNREADABLE, STREAM_SETUP_FAILED and others, each reported in the log
    ERROR_CODE open(const InitParametersOne& parameters, CALIBRATION_CHOICE choice = CALIBRATION_DEFAULT);
    /// Ends the input, the outgoing stream and the recording: the device is free, receivers are let go, threads have
    /// ended; a stream's port is free for this program, and some 5 s later for others. The object is then as a new one,
    /// but for getInitParameters(). An operation on another thread is waited for.
    /// @retval FAILURE it did not end within 10 s; the camera closes when it does
    ERROR_CODE close();
    [[nodiscard]] bool isOpened() const;
    /// Of an open camera what runs: its rate, resolution and HDR mode in place of those asked for; each wish that was
    /// not met is one Info line of open(). Of a closed one what open() was given last, as far as it adjusted it.
    [[nodiscard]] InitParametersOne getInitParameters() const;

    /// Takes the next frame, waiting for it within a bounded budget.
    /// @retval END_OF_INPUT the recording is over, or the sender ended its stream   @retval CAMERA_UNAVAILABLE not open
    /// @retval CAMERA_NOT_READY another grab() is running, or no frame came   @retval FAILURE the source failed
    ERROR_CODE grab();
    /// Writes a view of the last grabbed frame into `image`, reallocating it only when its size or type differs.
    /// A size of 0 asks for the camera's own; a smaller one is scaled.
    /// @retval CAMERA_NOT_READY no frame has been grabbed since open()   @retval CAMERA_UNAVAILABLE not open
    /// @retval RESOLUTION_NOT_SUPPORTED larger than the camera image   @retval INVALID_CALL no such view
    /// @retval INVALID_PARAMETER `image` wraps memory of the application that this view does not fit
    ERROR_CODE retrieveImage(Mat& image, VIEW view = RECTIFIED, MEM memory = CPU, Resolution resolution = {});
    /// When the current image was taken, or now; nanoseconds on the system clock.
    [[nodiscard]] Timestamp getTimestamp(TIME_REFERENCE reference) const;
    /// Frames per second of the source.
    [[nodiscard]] float getCameraFPS() const;
    /// Frames per second at which this application grabs, over the last ten intervals.
    [[nodiscard]] float getCurrentFPS() const;
    /// Where the frames of the open input went.
    [[nodiscard]] FrameCounters getFrameCounters() const;
    /// How the stream that comes in does; when grab() answers CAMERA_NOT_READY, since when nothing has come. All zero
    /// for the other inputs.
    [[nodiscard]] StreamInputStatus getStreamInputStatus() const;
    /// What is known of the last grabbed frame; nothing before the first. On the thread that grabs.
    [[nodiscard]] FrameInfo getFrameInfo() const;

    /// The attached cameras; the camera need not be open.
    [[nodiscard]] std::vector<DeviceProperties> getDeviceList() const;
    /// Why cameras are missing from that list, in one sentence; empty when nothing is known to be wrong.
    [[nodiscard]] String getDeviceListProblem() const;
    /// The camera, its calibration expressed for `resolution` (0: its own), and its sensors.
    [[nodiscard]] CameraDescription getCameraInformation(Resolution resolution = {}) const;

    /// The inertial sample of the current image, or the newest one, in the application's axes and unit.
    /// One sensor caller at a time.
    /// @retval SENSORS_NOT_PRESENT the input has none   @retval SENSOR_DATA_UNAVAILABLE none yet
    ERROR_CODE getSensorsData(SensorsData& data, TIME_REFERENCE reference);
    /// Every inertial sample of the last grabbed frame, in time order, each as for IMAGE.
    ERROR_CODE getSensorsDataBatch(std::vector<SensorsData>& batch);

    /// Int controls; -1 asks for the automatic value.
    ERROR_CODE getCameraSettings(VIDEO_SETTINGS setting, int& value);
    ERROR_CODE setCameraSettings(VIDEO_SETTINGS setting, int value);
    /// Range controls; (-1, -1) asks for the default range.
    ERROR_CODE getCameraSettings(VIDEO_SETTINGS setting, int& min, int& max);
    ERROR_CODE setCameraSettings(VIDEO_SETTINGS setting, int min, int max);
    /// The region of the automatic exposure.
    ERROR_CODE getCameraSettings(VIDEO_SETTINGS setting, Rect& region);
    ERROR_CODE setCameraSettings(VIDEO_SETTINGS setting, Rect region, bool reset = false);
    ERROR_CODE getCameraSettingsRange(VIDEO_SETTINGS setting, int& min, int& max);
    [[nodiscard]] bool isCameraSettingSupported(VIDEO_SETTINGS setting);
    /// A write to a stream's camera answers SUCCESS when it was sent. Here is why the sender did not carry out the last
    /// one; empty when it did, and for every other input.
    [[nodiscard]] String getControlRefusal();

    /// The keys of the stream that the next open() receives, and of the one that the next enableStreaming() sends. They
    /// stay until they are set again, never go into a log, and come before those of the environment.
    void setInputStreamKeys(const StreamKeys& keys);
    void setOutputStreamKeys(const StreamKeys& keys);

    /// Sends every grabbed frame to the network; parameters out of range are clamped with a warning.
    ERROR_CODE enableStreaming(StreamingParameters parameters = {});
    void disableStreaming();
    [[nodiscard]] bool isStreamingEnabled();
    [[nodiscard]] StreamingParameters getStreamingParameters();
    /// How the outgoing stream does; all zero without one.
    [[nodiscard]] StreamingStatus getStreamingStatus();

    /// Records every grabbed frame into an RLX file.
    ERROR_CODE enableRecording(const RecordingParameters& parameters);
    void disableRecording();
    void pauseRecording(bool paused);
    [[nodiscard]] RecordingStatus getRecordingStatus();

    /// Of a recorded file: the frame that the next grab() takes. @retval INVALID_CALL not a recorded file
    ERROR_CODE setRLXPosition(int frame);
    /// The first frame not earlier than `time`.
    ERROR_CODE setRLXPositionAt(Timestamp time);
    [[nodiscard]] int getRLXPosition();
    [[nodiscard]] int getRLXNumberOfFrames();

    /// Resets the micro-controller of a live camera; close the camera first and open it afterwards.
    static ERROR_CODE reboot(INPUT_TYPE type);
    static ERROR_CODE reboot();

private:
    /// Gives each operation the implementation object of the present opening, until the operation ends.
    struct Handle {
        std::unique_ptr<CameraSlot> slot;
        std::shared_ptr<CameraOneImpl> operator->() const;
    };

    Handle impl;
};

}  // namespace oru
