#pragma once

#include <cstdint>
#include <utility>

#include "oru/types.hpp"
#include "oru_input/grabber/frame_status.hpp"
#include "oru_input/mcu/KORUmcu.hpp"

namespace oru {

enum SETUP_STATE : int32_t {
    SETUP_OK,
    ERROR_INSTALLATION,
    ERROR_SENSORS_OPEN,
    KORU_NOT_RECOGNIZED = 4,
    ERROR_STREAM_START,  ///< in use elsewhere, or the stream did not start
    ERROR_DURING_CONSTRUCT,
    ERROR_SIZE,  ///< no such mode
    ERROR_ECT,
    ERROR_OV,
    ERROR_INIT,
    ERROR_SENSORS_SERIAL,
};

enum IMU_FREQ : int32_t { IMU_FREQ_2 = 2 };

/// Device layer of one live camera: a capture thread inside keeps the newest frame; the camera takes it.
/// The destructor stops the device.
/// Threads: set-up, frame operations and close come from the thread that grabs. Beside them come, from any threads,
/// inputType, getMCU and counters; from one thread of the application's the controls; and from a thread of a sender's,
/// also during and after close, the controls, getEffectiveWidth, hasMCU and getMCU.
class LiveCameraGrabber {
public:
    virtual ~LiveCameraGrabber() = default;

    virtual void setInputType(INPUT_TYPE type) = 0;
    [[nodiscard]] virtual INPUT_TYPE inputType() const = 0;
    virtual void setMonoCapture(bool mono) = 0;
    /// Opens the device and starts the capture. Id -1 takes the lowest free camera and is replaced by its id.
    virtual SETUP_STATE setUp(int& id, int width, int height, int fps, int option, bool, IMU_FREQ frequency, bool,
                              bool hdr) = 0;
    virtual int getEffectiveWidth() = 0;
    virtual int getEffectiveHeight() = 0;
    virtual MODEL getCameraModel() = 0;
    virtual int getSerialNumber() = 0;  ///< 0: none
    virtual int getFWVersion() = 0;
    virtual int getRequestedFPS() = 0;  ///< the rate actually set
    virtual void endSetup(unsigned char* unused) = 0;
    virtual bool hasMCU() = 0;
    /// Null without a micro-controller. A camera without IMU has one and answers hasMCU() with false.
    virtual KORUmcu* getMCU() = 0;

    /// Returns at the next frame, or after the given milliseconds; the result carries no meaning.
    virtual int waitForNewFrame(int milliseconds) = 0;
    /// NEW_FRAME once for each frame. A device that has delivered nothing for 2 s answers SOURCE_ERROR.
    virtual FrameStatus getFrameStatus() = 0;
    /// Between enter and exit the newest frame stays as it is; pixels, time and packet belong to one frame.
    virtual void enterCriticalSection() = 0;
    virtual void exitCriticalSection() = 0;
    /// width * height * 2 bytes, YUYV, one block; null when the frame has no pixels. Inside the critical section.
    virtual unsigned char* getPixels() = 0;
    virtual Timestamp getTimeStamp() = 0;
    /// The sample that belongs to the frame, or null.
    virtual const IMUPacket* getIMUPacket() = 0;
    /// What else is known of the frame; false when nothing is. Inside the critical section.
    virtual bool getFrameInfo(FrameInfo& /*info*/) { return false; }
    /// The frame has been taken. Inside the critical section.
    virtual void afterGrab() = 0;
    /// Stops the capture and releases the device; harmless when repeated.
    virtual void close(bool wait) = 0;

    virtual bool getVideoSettingRange(VIDEO_SETTINGS setting, int& min, int& max) = 0;
    /// Whether a value (or -1, the automatic one) may be written.
    virtual bool valueInRange(VIDEO_SETTINGS setting, int value) = 0;
    virtual int getGrabberSettingsValue(VIDEO_SETTINGS setting) = 0;
    virtual int setGrabberSettingsValue(VIDEO_SETTINGS setting, int value, bool automatic) = 0;
    virtual int setGrabberSettingsValue(VIDEO_SETTINGS setting, std::pair<int, int> range, bool automatic) = 0;
    virtual std::pair<int, int> getGrabberSettingsRangeValue(VIDEO_SETTINGS setting) = 0;
    /// The region of the automatic exposure; side is 0. Returns 0 on success.
    virtual int getROIforAECAGC(int side, Rect& region) = 0;
    virtual int setROIforAECAGC(int side, Rect region) = 0;
    virtual int resetROIforAECAGC(int side) = 0;

    [[nodiscard]] virtual FrameCounters counters() const = 0;
};

}  // namespace oru
