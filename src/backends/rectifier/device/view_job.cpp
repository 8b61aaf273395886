#include "backends/rectifier/device/view_job.hpp"

#include "backends/rectifier/device/column_pixels.hpp"

namespace oru::rectifier {
namespace {

template <class Real>
LensRays<Real> raysOf(const ViewGeometry& geometry, Size view) {
    const auto real = [](double value) { return static_cast<Real>(value); };
    const Intrinsics& camera = geometry.rectified;
    const Lens& lens = geometry.lens;
    const auto& [k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3, s4] = lens.distortion;
    // View and image cover the same area: their pixel centres coincide only at full size.
    const double reductionX = static_cast<double>(geometry.source.width) / view.width;
    const double reductionY = static_cast<double>(geometry.source.height) / view.height;
    const double scaleX = lens.fx / reductionX;
    const double scaleY = lens.fy / reductionY;
    const double direction = geometry.flipped ? -1 : 1;
    const double leftCentre = 0.5 * reductionX - 0.5;
    const double topCentre = 0.5 * reductionY - 0.5;
    const double firstX = geometry.flipped ? geometry.source.width - 1 - leftCentre : leftCentre;
    const double firstY = geometry.flipped ? geometry.source.height - 1 - topCentre : topCentre;
    return {.first_x = real((firstX - camera.cx) / camera.fx),
            .first_y = real((firstY - camera.cy) / camera.fy),
            .per_pixel_x = real(direction * reductionX / camera.fx),
            .per_pixel_y = real(direction * reductionY / camera.fy),
            .k1 = real(k1),
            .k2 = real(k2),
            .k3 = real(k3),
            .k4 = real(k4),
            .k5 = real(k5),
            .k6 = real(k6),
            .scale_x = real(scaleX),
            .origin_x = real((lens.cx + 0.5) / reductionX - 0.5),
            .xy_in_x = real(scaleX * 2 * p1),
            .xx_in_x = real(scaleX * 2 * p2),
            .r2_in_x = real(scaleX * (p2 + s1)),
            .r4_in_x = real(scaleX * s2),
            .scale_y = real(scaleY),
            .origin_y = real((lens.cy + 0.5) / reductionY - 0.5),
            .xy_in_y = real(scaleY * 2 * p2),
            .yy_in_y = real(scaleY * 2 * p1),
            .r2_in_y = real(scaleY * (p1 + s3)),
            .r4_in_y = real(scaleY * s4)};
}

/// Where column_pixels.hpp need not clamp, in its steps: as many of chroma's as have a pair and a luma sample to their
/// right, none in an image too wide for them.
std::uint32_t innerColumns(Size size, std::uint32_t siting) {
    const auto pairs = static_cast<std::uint32_t>((size.width - 1) / 2) << pixel::kInnerPairBits;
    const auto samples = static_cast<std::uint32_t>(size.width - 1) << pixel::kInnerBits;
    const bool fits = size.width <= static_cast<int>(pixel::kInnerBase) && siting < samples;
    return fits ? std::min(pairs, samples - siting) : 0;
}

}  // namespace

ViewJob viewJob(const ViewGeometry& geometry, Size view) {
    return {.image = {},
            .view = nullptr,
            .width = view.width,
            .height = view.height,
            .flipped = geometry.flipped,
            .rays = raysOf<float>(geometry, view),
            .exact_rays = raysOf<double>(geometry, view)};
}

ViewJob blackJob(Size view, unsigned char* pixels) {
    ViewJob job{};
    job.view = pixels;
    job.width = view.width;
    job.height = view.height;
    return job;
}

PairImage pairImage(const void* pixels, Size size, float chromaSiting) {
    const int pairs = (size.width + 1) / 2;
    const auto siting = static_cast<std::uint32_t>(std::lround(chromaSiting * (1 << pixel::kInnerBits)));
    return {.pairs = static_cast<const std::uint32_t*>(pixels),
            .pairs_per_row = pairs,
            .width = size.width,
            .height = size.height,
            .chroma_siting = static_cast<int>(std::lround(chromaSiting * kFractionSteps)),
            .half_width = 0.5F * static_cast<float>(size.width),
            .half_height = 0.5F * static_cast<float>(size.height),
            .last_x = (size.width - 1) * kFractionSteps,
            .last_y = (size.height - 1) * kFractionSteps,
            .last_chroma = (pairs - 1) * kFractionSteps,
            .inner_siting = siting,
            .inner_columns = innerColumns(size, siting),
            .inner_rows = static_cast<std::uint32_t>(size.height - 1)};
}

}  // namespace oru::rectifier
