#include "compose/built_in_factory.hpp"

#include "backends/calibration_fetch/CalibrationFetch.hpp"
#include "backends/gpu/host/HostGpuRuntime.hpp"
#include "backends/rectifier/cpu/cpu_rectifier.hpp"
#include "backends/rlx/Rlx.hpp"
#include "backends/stream/Stream.hpp"
#include "backends/virtual_bus/VirtualBus.hpp"
#include "collaborators/CollaboratorFactory.hpp"
#include "compose/library_settings.hpp"

namespace oru {
namespace {

/// The real neighbours of this build.
class BuiltInFactory final : public CollaboratorFactory {
public:
    std::unique_ptr<LiveCameraGrabber> makeGrabber(INPUT_TYPE type) override {
        return virtual_bus::makeVirtualGrabber(bus_, type);
    }
    std::unique_ptr<rlxrw::RLXVideo> makeRlxVideo(RlxRole /*role*/) override {
        return oru::makeRlxVideo(*calibration_);
    }
    std::unique_ptr<UDPInput> makeStreamInput(bool verbose) override {
        return makeStreamReceiver(*clock_, *calibration_, oru::makeRlxVideo(*calibration_), verbose);
    }
    std::unique_ptr<UDPOutput> makeStreamOutput(STREAMING_MODE /*mode*/, bool verbose) override {
        return makeStreamSender(*clock_, *calibration_, verbose);
    }
    std::unique_ptr<MonoRectifier> makeRectifier() override { return makeCpuRectifier(*gpu_); }
    std::unique_ptr<PlaybackRecorder> makePlaybackRecorder() override {
        return oru::makePlaybackRecorder(*clock_, *calibration_);
    }
    DeviceDirectory& devices() override { return *devices_; }
    CalibrationSource& calibration() override { return *calibration_; }
    GpuRuntime& gpu() override { return *gpu_; }
    Clock& clock() override { return *clock_; }

private:
    std::unique_ptr<Clock> clock_ = makeSystemClock();
    std::unique_ptr<GpuRuntime> gpu_ = makeHostGpuRuntime();
    std::unique_ptr<CalibrationSource> calibration_ = makeCalibrationFetch();
    std::shared_ptr<virtual_bus::VirtualBus> bus_ = virtual_bus::makeVirtualBus(*clock_, calibration_.get());
    std::unique_ptr<DeviceDirectory> devices_ = virtual_bus::makeVirtualDirectory(bus_);
};

std::shared_ptr<CollaboratorFactory> makeBuiltIn() {
    applyLibrarySettings();
    return std::make_shared<BuiltInFactory>();
}

}  // namespace

void registerBuiltInFactory() {
    CollaboratorFactory::registerBuiltIn(&makeBuiltIn);
}

}  // namespace oru
