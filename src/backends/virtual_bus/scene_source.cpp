#include "backends/virtual_bus/scene_source.hpp"

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
    : trajectory_(trajectory),
      mounting_(factoryMounting()),
      renderer_(lens, width, height),
      band_bytes_(static_cast<std::size_t>(width) * 2 * SceneRenderer::kCell),
      fps_(static_cast<uint64_t>(fps)) {}

bool SceneSource::next(uint64_t& moment) {
    // From the whole index each time, so that no rounding accumulates.
    moment = index_ / fps_ * kSecond + index_ % fps_ * kSecond / fps_;
    return true;
}

uint64_t SceneSource::period() const {
    return kSecond / fps_;
}

PictureResult SceneSource::draw(uint64_t moment, unsigned char* pixels, RowSink& sink) {
    ++index_;
    const double seconds = static_cast<double>(moment) * 1e-9;
    renderer_.begin(viewOf(trajectory_.at(seconds), mounting_), seconds);
    for (int band = 0; band < renderer_.bands(); ++band) {
        unsigned char* start = pixels + static_cast<std::size_t>(band) * band_bytes_;
        renderer_.drawBand(band, start);
        sink.rows(start, band * SceneRenderer::kCell, SceneRenderer::kCell);
    }
    return PictureResult::drawn;
}

}  // namespace oru::virtual_bus
