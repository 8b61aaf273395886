#pragma once

#include <cstdlib>
#include <memory>
#include <utility>

#include "collaborators/CollaboratorFactory.hpp"

namespace oru::doubles {

/// Has a GPU and nothing else, and needs no other library: the GPU backends' tests build without any.
class GpuFactory final : public CollaboratorFactory {
public:
    explicit GpuFactory(std::shared_ptr<GpuRuntime> runtime) : gpuRuntime(std::move(runtime)) {}

    std::unique_ptr<LiveCameraGrabber> makeGrabber(INPUT_TYPE) override { return nullptr; }
    std::unique_ptr<rlxrw::RLXVideo> makeRlxVideo(RlxRole) override { return nullptr; }
    std::unique_ptr<UDPInput> makeStreamInput(bool) override { return nullptr; }
    std::unique_ptr<UDPOutput> makeStreamOutput(STREAMING_MODE, bool) override { return nullptr; }
    std::unique_ptr<MonoRectifier> makeRectifier() override { return nullptr; }
    std::unique_ptr<PlaybackRecorder> makePlaybackRecorder() override { return nullptr; }
    DeviceDirectory& devices() override { std::abort(); }
    CalibrationSource& calibration() override { std::abort(); }
    GpuRuntime& gpu() override { return *gpuRuntime; }
    Clock& clock() override { std::abort(); }

private:
    std::shared_ptr<GpuRuntime> gpuRuntime;
};

}  // namespace oru::doubles
