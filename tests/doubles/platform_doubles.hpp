#pragma once

#include <string>
#include <vector>

#include "collaborators/DeviceDirectory.hpp"
#include "collaborators/MonoRectifier.hpp"
#include "doubles/CallLog.hpp"
#include "doubles/HostMemoryGpu.hpp"

namespace oru::doubles {

/// Logs contexts and streams.
class ScriptedGpu final : public HostMemoryGpu {
public:
    explicit ScriptedGpu(CallLog& calls) : log(calls) {}

    int cudaSetDevice(int device) override {
        log.add("cudaSetDevice {}", device);
        return 0;
    }
    int cuCtxGetCurrent(CUctx_st** context) override {
        log.add("cuCtxGetCurrent");
        *context = current;
        return 0;
    }
    int cuCtxCreate_v2(CUctx_st** context, unsigned flags, int device) override {
        log.add("cuCtxCreate {} {}", flags, device);
        *context = reinterpret_cast<CUctx_st*>(&createdContext);
        return 0;
    }
    int cudaStreamCreate(CUstream_st** stream) override {
        log.add("cudaStreamCreate");
        *stream = reinterpret_cast<CUstream_st*>(&createdStream);
        return 0;
    }
    int cudaStreamDestroy(CUstream_st*) override {
        log.add("cudaStreamDestroy");
        return 0;
    }
    int cuCtxPushCurrent_v2(CUctx_st* context) override {
        addContextCall("cuCtxPush");
        pushed = context;
        return 0;
    }
    int cuCtxPopCurrent_v2(CUctx_st**) override {
        addContextCall("cuCtxPop");
        return 0;
    }

    CUctx_st* current = nullptr;
    CUctx_st* pushed = nullptr;  // last
    bool logsContexts = false;

private:
    void addContextCall(const char* call) {
        if (logsContexts) {
            log.add("{}", call);
        }
    }

    CallLog& log;
    int createdContext = 0;
    int createdStream = 0;
};

class ScriptedRectifier final : public MonoRectifier {
public:
    explicit ScriptedRectifier(CallLog& calls) : log(calls) {}

    CameraParameters setup(CameraParameters& raw, CUstream_st*, bool flipped) override {
        log.add("setup {}x{} {}", raw.image_size.width, raw.image_size.height, flipped);
        CameraParameters rectified = raw;
        rectified.distortion.fill(0.0);
        return rectified;
    }
    void process(Mat& image, CUstream_st*) override {
        log.add("process");
        shown = image.getPtr<unsigned char>(CPU);
    }
    /// The first byte of the memory that was processed, as it is now.
    int getView(VIEW view, Resolution size, Mat& destination, MEM memory, CUstream_st*) override {
        log.add("getView {} {}x{} {}", static_cast<int>(view), size.width, size.height, static_cast<int>(memory));
        if (auto* drawn = destination.getPtr<unsigned char>(CPU); drawn != nullptr && shown != nullptr) {
            drawn[0] = shown[0];
        }
        return 0;
    }
    void free() override {
        log.add("freeRectifier");
        shown = nullptr;
    }

private:
    CallLog& log;
    const unsigned char* shown = nullptr;
};

class ScriptedDirectory final : public DeviceDirectory {
public:
    explicit ScriptedDirectory(CallLog& calls) : log(calls) {}

    std::vector<DeviceProperties> getGMSLDevices(bool a, bool b) override {
        log.add("getGMSLDevices {} {}", a, b);
        return devices;
    }
    std::vector<DeviceProperties> getGrabberList(bool all) override {
        log.add("getGrabberList {}", all);
        return devices;
    }
    ERROR_CODE resetMCU(int index) override {
        log.add("resetMCU {}", index);
        return reset;
    }

    std::vector<DeviceProperties> devices;
    ERROR_CODE reset = SUCCESS;

private:
    CallLog& log;
};

}  // namespace oru::doubles
