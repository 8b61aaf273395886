#pragma once

#include "backends/virtual_bus/picture_source.hpp"
#include "backends/virtual_bus/scene_renderer.hpp"
#include "backends/virtual_bus/trajectory.hpp"

namespace oru::virtual_bus {

/// The furnished room, seen by a camera that is carried along a trajectory.
class SceneSource final : public PictureSource {
public:
    SceneSource(const Lens& lens, int width, int height, const Trajectory& trajectory);

    PictureResult draw(uint64_t elapsed, unsigned char* pixels, RowSink& sink) override;

private:
    Trajectory trajectory_;
    Mounting mounting_;
    SceneRenderer renderer_;
    std::size_t band_bytes_;
};

}  // namespace oru::virtual_bus
