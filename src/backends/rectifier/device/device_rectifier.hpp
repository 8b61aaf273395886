#pragma once

#include <memory>

#include "backends/rectifier/device/device_work.hpp"
#include "collaborators/GpuRuntime.hpp"
#include "collaborators/MonoRectifier.hpp"

namespace oru::rectifier {

/// A rectifier whose frames and views live in device memory. process() uploads the frame in the stream and returns when
/// it has arrived; getView() draws in the stream and returns when the view is complete, for CPU brought back to the
/// container's host memory. Neither waits for anything but its own stream, nor allocates after the first view of a size
/// (four sizes are kept). Smaller views are drawn from a reduced image that all views of that size and frame share.
/// Results are a ViewResult; the host's view is black unless it was drawn. `gpu` outlives the rectifier and every call
/// comes in the context of its stream.
[[nodiscard]] std::unique_ptr<MonoRectifier> makeDeviceRectifier(GpuRuntime& gpu, std::unique_ptr<DeviceWork> work);

}  // namespace oru::rectifier
