#include "compose/built_in_factory.hpp"

#include <cstdlib>
#include <mutex>
#include <string_view>

#include "backends/calibration_fetch/calibration_fetch.hpp"
#include "backends/gpu/cuda/cuda_gpu_runtime.hpp"
#include "backends/gpu/host/host_gpu_runtime.hpp"
#include "backends/rectifier/cpu/cpu_rectifier.hpp"
#include "backends/rectifier/cuda/cuda_rectifier.hpp"
#include "backends/virtual_bus/virtual_bus_factory.hpp"
#include "collaborators/CollaboratorFactory.hpp"
#include "compose/LazyFootageDecoder.hpp"
#include "compose/LazyPlaybackRecorder.hpp"
#include "compose/LazyRlxVideo.hpp"
#include "compose/modules/modules.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru {
namespace {

constexpr const char* kGpuVariable = "KORU_GPU";

/// A CUDA device when one answers and KORU_GPU is not "off", else the host.
std::unique_ptr<GpuRuntime> makeGpuRuntime(bool& hasDevice) {
    const char* wish = std::getenv(kGpuVariable);
    std::string absence = "switched off by KORU_GPU";
    std::unique_ptr<GpuRuntime> device;
    if (wish == nullptr || std::string_view(wish) != "off") {
        device = makeCudaGpuRuntime(absence);
    }
    hasDevice = device != nullptr;
    return hasDevice ? std::move(device) : makeHostGpuRuntime(absence);
}

Download downloadByModule(const std::string& address, std::chrono::milliseconds limit) {
    const CalibrationModule* module = calibrationModule();
    return module != nullptr ? module->download(address, limit)
                             : Download{{}, "the calibration module is missing", Completeness::KNOWN};
}

std::unique_ptr<UDPInput> makeReceiver(Clock& clock, CalibrationSource& calibration, bool verbose) {
    const StreamModule* module = streamModule();
    return module != nullptr
               ? module->makeReceiver(clock, calibration, std::make_unique<LazyRlxVideo>(calibration), verbose)
               : nullptr;
}

std::unique_ptr<UDPOutput> makeSender(Clock& clock, CalibrationSource& calibration, bool verbose) {
    const StreamModule* module = streamModule();
    return module != nullptr ? module->makeSender(clock, calibration, verbose) : nullptr;
}

/// The collaborators of one camera object: those of the process, with a source of calibrations of its own.
class CameraFactory final : public CollaboratorFactory {
public:
    CameraFactory(std::shared_ptr<CollaboratorFactory> processFactory, CalibrationSource& calibration)
        : process(std::move(processFactory)), calibrationSource(calibration) {}

    std::unique_ptr<LiveCameraGrabber> makeGrabber(INPUT_TYPE type) override { return process->makeGrabber(type); }
    std::unique_ptr<rlxrw::RLXVideo> makeRlxVideo(RlxRole /*role*/) override {
        return std::make_unique<LazyRlxVideo>(calibrationSource);
    }
    std::unique_ptr<UDPInput> makeStreamInput(bool verbose) override {
        return makeReceiver(clock(), calibrationSource, verbose);
    }
    std::unique_ptr<UDPOutput> makeStreamOutput(STREAMING_MODE /*mode*/, bool verbose) override {
        return makeSender(clock(), calibrationSource, verbose);
    }
    std::unique_ptr<MonoRectifier> makeRectifier() override { return process->makeRectifier(); }
    std::unique_ptr<PlaybackRecorder> makePlaybackRecorder() override {
        return std::make_unique<LazyPlaybackRecorder>(clock(), calibrationSource);
    }
    DeviceDirectory& devices() override { return process->devices(); }
    CalibrationSource& calibration() override { return calibrationSource; }
    GpuRuntime& gpu() override { return process->gpu(); }
    Clock& clock() override { return process->clock(); }

private:
    std::shared_ptr<CollaboratorFactory> process;
    CalibrationSource& calibrationSource;
};

/// The real collaborators of this build. What lies in a module and is missing is null, or answers so when it is needed.
class BuiltInFactory final : public CollaboratorFactory, public std::enable_shared_from_this<BuiltInFactory> {
public:
    std::unique_ptr<LiveCameraGrabber> makeGrabber(INPUT_TYPE type) override {
        return virtual_bus::makeVirtualGrabber(bus, type);
    }
    std::unique_ptr<rlxrw::RLXVideo> makeRlxVideo(RlxRole /*role*/) override {
        return std::make_unique<LazyRlxVideo>(*calibrationSource);
    }
    std::unique_ptr<UDPInput> makeStreamInput(bool verbose) override {
        return makeReceiver(*systemClock, *calibrationSource, verbose);
    }
    std::unique_ptr<UDPOutput> makeStreamOutput(STREAMING_MODE /*mode*/, bool verbose) override {
        return makeSender(*systemClock, *calibrationSource, verbose);
    }
    std::unique_ptr<MonoRectifier> makeRectifier() override {
        std::call_once(gpuTold, [this] { ORU_LOG(Info, "{} GPU: {}", kTagInit, gpuRuntime->description()); });
        return hasDevice ? makeCudaRectifier(*gpuRuntime) : makeCpuRectifier(*gpuRuntime);
    }
    std::unique_ptr<PlaybackRecorder> makePlaybackRecorder() override {
        return std::make_unique<LazyPlaybackRecorder>(*systemClock, *calibrationSource);
    }
    DeviceDirectory& devices() override { return *directory; }
    CalibrationSource& calibration() override { return *calibrationSource; }
    GpuRuntime& gpu() override { return *gpuRuntime; }
    Clock& clock() override { return *systemClock; }
    std::shared_ptr<CollaboratorFactory> withCalibration(CalibrationSource& source) override {
        return std::make_shared<CameraFactory>(shared_from_this(), source);
    }

private:
    std::unique_ptr<Clock> systemClock = makeSystemClock();
    bool hasDevice = false;
    std::once_flag gpuTold;
    std::unique_ptr<GpuRuntime> gpuRuntime = makeGpuRuntime(hasDevice);
    std::unique_ptr<CalibrationSource> calibrationSource = makeCalibrationFetch(&downloadByModule);
    LazyFootageDecoder footage;
    std::shared_ptr<virtual_bus::VirtualBus> bus =
        virtual_bus::makeVirtualBus(*systemClock, calibrationSource.get(), footage);
    std::unique_ptr<DeviceDirectory> directory = virtual_bus::makeVirtualDirectory(bus);
};

std::shared_ptr<CollaboratorFactory> makeBuiltIn() {
    return std::make_shared<BuiltInFactory>();
}

}  // namespace

void registerBuiltInFactory() {
    noteLibraryFolder();
    CollaboratorFactory::registerBuiltIn(&makeBuiltIn);
}

}  // namespace oru
