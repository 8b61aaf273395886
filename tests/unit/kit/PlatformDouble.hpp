#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include "collaborators/CollaboratorFactory.hpp"

namespace oru {

/// Counts what is allocated and given back, and runs out of memory on demand.
class GpuDouble final : public GpuRuntime {
public:
    int cudaSetDevice(int) override { return 0; }
    int cuCtxGetCurrent(CUctx_st**) override { return 0; }
    int cuCtxCreate_v2(CUctx_st**, unsigned, int) override { return 0; }
    int cudaStreamCreate(CUstream_st**) override { return 0; }
    int cudaStreamDestroy(CUstream_st*) override { return 0; }
    int cudaStreamSynchronize(CUstream_st*) override { return 0; }
    void* hostAlloc(std::size_t bytes) override { return allocate(bytes, hostLimit, host); }
    void hostFree(void* memory) override { release(memory, host); }
    void* deviceAlloc(std::size_t bytes) override { return allocate(bytes, deviceLimit, device); }
    void deviceFree(void* memory) override { release(memory, device); }
    int copyHostToDevice(void*, const void*, std::size_t) override { return 0; }
    int copyDeviceToHost(void*, const void*, std::size_t) override { return 0; }

    std::map<void*, std::size_t> host;
    std::map<void*, std::size_t> device;
    std::size_t hostLimit = std::size_t{1} << 30;
    std::size_t deviceLimit = std::size_t{1} << 30;
    int wrongFrees = 0;

private:
    static void* allocate(std::size_t bytes, std::size_t limit, std::map<void*, std::size_t>& held) {
        void* memory = bytes > limit ? nullptr : std::malloc(bytes);
        if (memory != nullptr) {
            held[memory] = bytes;
        }
        return memory;
    }
    void release(void* memory, std::map<void*, std::size_t>& held) {
        wrongFrees += held.erase(memory) == 1 ? 0 : 1;
        std::free(memory);
    }
};

class DirectoryDouble final : public DeviceDirectory {
public:
    std::vector<DeviceProperties> getGMSLDevices(bool first, bool second) override {
        return std::vector<DeviceProperties>(first && !second ? 1 : 0);
    }
    std::vector<DeviceProperties> getGrabberList(bool all) override {
        return std::vector<DeviceProperties>(all ? 2 : 0);
    }
    ERROR_CODE resetMCU(int index) override { return index == 1 ? SUCCESS : INVALID_PARAMETER; }
};

class CalibrationDouble final : public CalibrationSource {
public:
    bool downloadCalibFile(String directory, int serial_number) override {
        return directory.get() == "d/" && serial_number == 7;
    }
};

/// A factory of which only the platform, the directory and the calibration source can be used.
class PlatformDouble final : public CollaboratorFactory {
public:
    std::unique_ptr<LiveCameraGrabber> makeGrabber(INPUT_TYPE) override { return nullptr; }
    std::unique_ptr<rlxrw::RLXVideo> makeRlxVideo(RlxRole) override { return nullptr; }
    std::unique_ptr<UDPInput> makeStreamInput(bool) override { return nullptr; }
    std::unique_ptr<UDPOutput> makeStreamOutput(STREAMING_MODE, bool) override { return nullptr; }
    std::unique_ptr<MonoRectifier> makeRectifier() override { return nullptr; }
    std::unique_ptr<PlaybackRecorder> makePlaybackRecorder() override { return nullptr; }
    DeviceDirectory& devices() override { return directory; }
    CalibrationSource& calibration() override { return calibrations; }
    GpuRuntime& gpu() override { return memory; }
    Clock& clock() override { return *systemClock; }

    GpuDouble memory;
    DirectoryDouble directory;
    CalibrationDouble calibrations;
    std::unique_ptr<Clock> systemClock = makeSystemClock();
};

/// Makes a platform the process default for a scope.
class PlatformScope {
public:
    explicit PlatformScope(std::shared_ptr<CollaboratorFactory> platform)
        : former(CollaboratorFactory::setProcessDefault(std::move(platform))) {}
    ~PlatformScope() { CollaboratorFactory::setProcessDefault(former); }
    PlatformScope(const PlatformScope&) = delete;
    PlatformScope& operator=(const PlatformScope&) = delete;

private:
    std::shared_ptr<CollaboratorFactory> former;
};

}  // namespace oru
