#pragma once

#include "backends/virtual_bus/scene/SceneRenderer.hpp"
#include "backends/virtual_bus/scene/image_source.hpp"
#include "backends/virtual_bus/scene/trajectory.hpp"

namespace oru::virtual_bus {

/// The furnished room, seen by a camera that is carried along a trajectory.
class SceneSource final : public ImageSource {
public:
    SceneSource(const Lens& lens, int width, int height, int fps, const Trajectory& trajectory);

    bool next(uint64_t& moment) override;
    ImageResult draw(uint64_t moment, unsigned char* pixels, RowSink& sink) override;
    void skip() override { ++index; }
    [[nodiscard]] uint64_t period() const override;

private:
    Trajectory cameraTrajectory;
    Mounting cameraMounting;
    SceneRenderer renderer;
    std::size_t bandBytes;
    uint64_t framesPerSecond;
    uint64_t index = 0;
};

}  // namespace oru::virtual_bus
