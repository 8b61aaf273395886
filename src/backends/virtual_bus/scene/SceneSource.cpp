#include "backends/virtual_bus/scene/SceneSource.hpp"

namespace oru::virtual_bus {
namespace {

constexpr uint64_t kSecond = 1'000'000'000;

View viewOf(const MotionState& state, const Mounting& mounting) {
    const Eigen::Matrix3d rotation = (state.orientation * mounting.rotation).toRotationMatrix();
    const Eigen::Vector3d eye = state.position + state.orientation * mounting.translation;
    View view;
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            view.rows[row][column] = static_cast<float>(rotation(static_cast<int>(row), static_cast<int>(column)));
        }
    }
    view.eye = {static_cast<float>(eye.x()), static_cast<float>(eye.y()), static_cast<float>(eye.z())};
    return view;
}

}  // namespace

SceneSource::SceneSource(const Lens& lens, int width, int height, int fps, const Trajectory& trajectory)
    : cameraTrajectory(trajectory),
      cameraMounting(factoryMounting()),
      renderer(lens, width, height),
      bandBytes(static_cast<std::size_t>(width) * 2 * SceneRenderer::kCell),
      framesPerSecond(static_cast<uint64_t>(fps)) {}

bool SceneSource::next(uint64_t& moment) {
    // From the whole index each time, so that no rounding accumulates.
    moment = index / framesPerSecond * kSecond + index % framesPerSecond * kSecond / framesPerSecond;
    return true;
}

uint64_t SceneSource::period() const {
    return kSecond / framesPerSecond;
}

ImageResult SceneSource::draw(uint64_t moment, unsigned char* pixels, RowSink& sink) {
    ++index;
    const double seconds = static_cast<double>(moment) * 1e-9;
    renderer.begin(viewOf(cameraTrajectory.at(seconds), cameraMounting), seconds);
    for (int band = 0; band < renderer.bands(); ++band) {
        unsigned char* start = pixels + static_cast<std::size_t>(band) * bandBytes;
        renderer.drawBand(band, start);
        sink.rows(start, band * SceneRenderer::kCell, SceneRenderer::kCell);
    }
    return ImageResult::DRAWN;
}

}  // namespace oru::virtual_bus
