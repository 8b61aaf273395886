#include "backends/virtual_bus/VirtualGrabber.hpp"

#include <algorithm>
#include <cmath>

#include "backends/virtual_bus/footage/footage.hpp"
#include "backends/virtual_bus/guarded.hpp"
#include "backends/virtual_bus/scene/SceneSource.hpp"
#include "calibration/mode_names.hpp"
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
    : virtualBus(std::move(bus)), chosenType(type), claimedCamera(noCamera()) {
    virtualBus->addMcu(&mcu);
}

VirtualGrabber::~VirtualGrabber() {
    virtualBus->removeMcu(&mcu);
    close(true);
}

SETUP_STATE VirtualGrabber::setUp(int& id, int width, int height, int fps, int /*option*/, bool, IMU_FREQ /*frequency*/,
                                  bool, bool hdr) {
    return guarded("setUp", ERROR_STREAM_START, [&] { return open(id, width, height, fps, hdr); });
}

SETUP_STATE VirtualGrabber::open(int& id, int width, int height, int fps, bool hdr) {
    close(true);
    claimedCamera = noCamera();
    CameraConfig camera;
    CameraLock lock;
    if (const SETUP_STATE state = virtualBus->claim(id, camera, lock); state != SETUP_OK) {
        return state;
    }
    const SensorMode* mode = findMode(camera.model, width, height);
    if (mode == nullptr) {
        ORU_REASON("camera {} has no size {}x{}; it offers {}", camera.id, width, height, offeredSizes(camera.model));
        return ERROR_SIZE;
    }
    ORU_LOG(Warning, "{} Camera {} with serial number {} is virtual: its pictures and samples are computed.", kTagKoru,
            camera.id, camera.serial);
    id = camera.id;
    claimedCamera = camera;
    cameraLock = std::move(lock);
    return startCapture(*mode, fps, hdr);
}

bool VirtualGrabber::fillSources(const SensorMode& mode, int fps, Capture::Setup& setup) {
    const Trajectory trajectory(claimedCamera.motion, claimedCamera.upside_down);
    if (claimedCamera.footage.path.empty()) {
        framesPerSecond = std::clamp(fps, 1, mode.max_fps);
        setup.images = std::make_unique<SceneSource>(lensOf(claimedCamera, mode), mode.width, mode.height,
                                                     framesPerSecond, trajectory);
    } else {
        framesPerSecond = std::max(1, static_cast<int>(std::lround(claimedCamera.facts.fps)));
        std::string error;
        setup.images = openFootage(virtualBus->footageDecoder(), claimedCamera.footage, claimedCamera.facts, mode.width,
                                   mode.height, error);
        setup.inertial = claimedCamera.mcu ? openFootageInertial(claimedCamera.footage) : nullptr;
        if (setup.images == nullptr) {
            ORU_LOG(Error, "{} Footage {}: {}.", kTagInit, claimedCamera.footage.path, error);
            return false;
        }
    }
    if (setup.inertial == nullptr) {
        setup.inertial = std::make_unique<TrajectoryInertial>(trajectory, claimedCamera.serial);
    }
    return true;
}

SETUP_STATE VirtualGrabber::startCapture(const SensorMode& mode, int fps, bool hdr) {
    Capture::Setup setup;
    if (!fillSources(mode, fps, setup)) {
        close(true);
        return ERROR_STREAM_START;
    }
    imageWidth = mode.width;
    imageHeight = mode.height;
    setup.camera = claimedCamera.id;
    setup.mcu.present = claimedCamera.mcu;
    setup.mcu.magnetometer = claimedCamera.magnetometer;
    setup.mcu.barometer = claimedCamera.barometer;
    setup.mcu.firmware = claimedCamera.mcu_firmware;
    setup.faults = claimedCamera.faults;
    setup.control_file = virtualBus->controlFile();
    setup.width = imageWidth;
    setup.height = imageHeight;
    // The 3 micrometre sensor has no HDR read-out and ignores the wish.
    controls.reset(imageWidth, imageHeight, framesPerSecond, hdr && claimedCamera.model == MODEL_MONO_2UM);
    openCapture = std::make_unique<Capture>(virtualBus->clock(), frames, mcu, controls, std::move(setup));
    return SETUP_OK;
}

void VirtualGrabber::close(bool /*wait*/) {
    openCapture.reset();
    frames.clear();
    cameraLock.release();
}

int VirtualGrabber::waitForNewFrame(int milliseconds) {
    // A source that will bring nothing more is not worth a wait; a silent one may come back any time.
    if (openCapture != nullptr && !openCapture->isOver() && !frames.waitForFresh(milliseconds)) {
        openCapture->noteWait(static_cast<uint64_t>(std::max(milliseconds, 0)) * 1'000'000);
    }
    return frames.fresh() ? 0 : -1;
}

FrameStatus VirtualGrabber::getFrameStatus() {
    if (openCapture == nullptr) {
        return SOURCE_UNAVAILABLE;
    }
    // Asked first: the last frame may come, and the source end, between the two questions.
    const FrameStatus status = openCapture->status();
    if (frames.fresh()) {
        return NEW_FRAME;
    }
    if (status == SOURCE_ERROR) {
        ORU_REASON("camera {} was unplugged; check its cable", claimedCamera.id);
    }
    return status;
}

unsigned char* VirtualGrabber::getPixels() {
    Frame* frame = frames.held();
    return frame != nullptr ? frame->pixels.data() : nullptr;
}

Timestamp VirtualGrabber::getTimeStamp() {
    const Frame* frame = frames.held();
    return frame != nullptr ? frame->time : 0;
}

const IMUPacket* VirtualGrabber::getIMUPacket() {
    const Frame* frame = frames.held();
    return frame != nullptr && frame->has_imu ? &frame->imu : nullptr;
}

bool VirtualGrabber::getFrameInfo(FrameInfo& info) {
    const Frame* frame = frames.held();
    if (frame == nullptr) {
        return false;
    }
    info = frame->info;
    return true;
}

std::unique_ptr<LiveCameraGrabber> makeVirtualGrabber(std::shared_ptr<VirtualBus> bus, INPUT_TYPE type) {
    return std::make_unique<VirtualGrabber>(std::move(bus), type);
}

}  // namespace oru::virtual_bus
