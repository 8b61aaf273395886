#include "backends/virtual_bus/virtual_grabber.hpp"

#include <algorithm>
#include <cmath>

#include "backends/virtual_bus/footage.hpp"
#include "backends/virtual_bus/scene_source.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::virtual_bus {
namespace {

CameraConfig noCamera() {
    CameraConfig camera;
    camera.model = MODEL_UNKNOWN;
    camera.firmware = 0;
    return camera;
}

}  // namespace

VirtualGrabber::VirtualGrabber(std::shared_ptr<VirtualBus> bus, INPUT_TYPE type)
    : bus_(std::move(bus)), type_(type), camera_(noCamera()) {
    bus_->addMcu(&mcu_);
}

VirtualGrabber::~VirtualGrabber() {
    bus_->removeMcu(&mcu_);
    close(true);
}

SETUP_STATE VirtualGrabber::setUp(int& id, int width, int height, int fps, int /*option*/, bool, IMU_FREQ /*frequency*/,
                                  bool, bool hdr) {
    close(true);
    camera_ = noCamera();
    CameraConfig camera;
    CameraLock lock;
    if (const SETUP_STATE state = bus_->claim(id, camera, lock); state != SETUP_OK) {
        return state;
    }
    const SensorMode* mode = findMode(camera.model, width, height);
    if (mode == nullptr) {
        return ERROR_SIZE;
    }
    ORU_LOG(Warning, "{} Camera {} with serial number {} is virtual: its pictures and samples are computed.", kTagKoru,
            camera.id, camera.serial);
    id = camera.id;
    camera_ = camera;
    lock_ = std::move(lock);
    return startCapture(*mode, fps, hdr);
}

bool VirtualGrabber::fillSources(const SensorMode& mode, int fps, Capture::Setup& setup) {
    const Trajectory trajectory(camera_.motion, camera_.upside_down);
    if (camera_.footage.path.empty()) {
        fps_ = std::clamp(fps, 1, mode.max_fps);
        setup.pictures =
            std::make_unique<SceneSource>(lensOf(camera_, mode), mode.width, mode.height, fps_, trajectory);
    } else {
        fps_ = std::max(1, static_cast<int>(std::lround(camera_.facts.fps)));
        std::string error;
        setup.pictures = openFootage(camera_.footage, camera_.facts, mode.width, mode.height, error);
        setup.inertial = camera_.mcu ? openFootageInertial(camera_.footage) : nullptr;
        if (setup.pictures == nullptr) {
            ORU_LOG(Error, "{} Footage {}: {}.", kTagInit, camera_.footage.path, error);
            return false;
        }
    }
    if (setup.inertial == nullptr) {
        setup.inertial = std::make_unique<TrajectoryInertial>(trajectory, camera_.serial);
    }
    return true;
}

SETUP_STATE VirtualGrabber::startCapture(const SensorMode& mode, int fps, bool hdr) {
    Capture::Setup setup;
    if (!fillSources(mode, fps, setup)) {
        close(true);
        return ERROR_STREAM_START;
    }
    width_ = mode.width;
    height_ = mode.height;
    setup.camera = camera_.id;
    setup.mcu.present = camera_.mcu;
    setup.mcu.magnetometer = camera_.magnetometer;
    setup.mcu.barometer = camera_.barometer;
    setup.mcu.firmware = camera_.mcu_firmware;
    setup.faults = camera_.faults;
    setup.control_file = bus_->controlFile();
    setup.width = width_;
    setup.height = height_;
    // The 3 micrometre sensor has no HDR read-out and ignores the wish.
    controls_.reset(width_, height_, fps_, hdr && camera_.model == MODEL_MONO_2UM);
    capture_ = std::make_unique<Capture>(bus_->clock(), frames_, mcu_, controls_, std::move(setup));
    return SETUP_OK;
}

void VirtualGrabber::close(bool /*wait*/) {
    capture_.reset();
    lock_.release();
}

int VirtualGrabber::waitForNewFrame(int milliseconds) {
    // A source that will bring nothing more is not worth a wait.
    if (capture_ != nullptr && capture_->status() == NO_FRAME) {
        frames_.waitForFresh(milliseconds);
    }
    return frames_.fresh() ? 0 : -1;
}

FrameStatus VirtualGrabber::getFrameStatus() {
    if (capture_ == nullptr) {
        return SOURCE_UNAVAILABLE;
    }
    return frames_.fresh() ? NEW_FRAME : capture_->status();
}

unsigned char* VirtualGrabber::getPixels() {
    Frame* frame = frames_.held();
    return frame != nullptr ? frame->pixels.data() : nullptr;
}

Timestamp VirtualGrabber::getTimeStamp() {
    const Frame* frame = frames_.held();
    return frame != nullptr ? frame->time : 0;
}

const IMUPacket* VirtualGrabber::getIMUPacket() {
    const Frame* frame = frames_.held();
    return frame != nullptr && frame->has_imu ? &frame->imu : nullptr;
}

std::unique_ptr<LiveCameraGrabber> makeVirtualGrabber(std::shared_ptr<VirtualBus> bus, INPUT_TYPE type) {
    return std::make_unique<VirtualGrabber>(std::move(bus), type);
}

}  // namespace oru::virtual_bus
