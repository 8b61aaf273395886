#include "backends/rectifier/device/device_rectifier.hpp"

#include "backends/gpu/cuda/cuda_gpu_runtime.hpp"
#include "backends/gpu/host/host_gpu_runtime.hpp"
#include "backends/rectifier/HostDeviceWork.hpp"
#include "backends/rectifier/cuda/cuda_rectifier.hpp"
#include "backends/rectifier/random_views.hpp"
#include "contracts/rectifier_contract.hpp"

namespace oru {
namespace {

const Subject kPixelCodeOnHost{
    "PixelCodeOnHost", [](std::string&) { return makeHostGpuRuntime(); },
    [](GpuRuntime& gpu) { return makeDeviceRectifier(gpu, std::make_unique<HostDeviceWork>()); }};
const Subject kCuda{"Cuda", &makeCudaGpuRuntime, &makeCudaRectifier};

INSTANTIATE_TEST_SUITE_P(Device, RectifierContract, testing::Values(kPixelCodeOnHost, kCuda), nameOf);

class DeviceRectifier : public RectifierContract {
protected:
    /// The frame without the padding of its rows.
    static Mat packed(const TestImage& image) {
        Mat mat;
        const Resolution size{static_cast<uint64_t>(image.size.width), static_cast<uint64_t>(image.size.height)};
        EXPECT_EQ(mat.alloc(size, U8_C2, CPU), SUCCESS);
        auto* out = mat.getPtr<unsigned char>(CPU);
        for (int row = 0; row < image.size.height; ++row, out += image.size.width * 2) {
            std::copy_n(image.frame().row(row), image.size.width * 2, out);
        }
        return mat;
    }

    /// Draws all four views and compares them with the plain definition, borders included.
    void expectPlainViews(const CameraParameters& lens, bool flipped, Size size, const TestImage& image, int tolerance,
                          const std::string& what) {
        CameraParameters raw = lens;
        (void)rectifier->setup(raw, stream, flipped);
        Mat source = packed(image);
        rectifier->process(source, stream);
        ViewGeometry geometry = geometryOf(lens, flipped);
        ReferenceRenderer plain(rounded(geometry), size);
        for (const bool rectified : {true, false}) {
            for (const bool gray : {true, false}) {
                TestView expected(size, gray);
                TestView drawn(size, gray);
                plain.draw(image.frame(), rectified, expected.target());
                Mat delivered;
                const auto kind = static_cast<VIEW>((rectified ? 0 : 4) | (gray ? 2 : 0));
                const Resolution resolution{static_cast<uint64_t>(size.width), static_cast<uint64_t>(size.height)};
                ASSERT_EQ(getView(kind, resolution, delivered, CPU), VIEW_DRAWN) << what;
                drawn.bytes = bytesOf(delivered, CPU);
                const Error error = compare(drawn, expected);
                EXPECT_LE(error.largest, tolerance) << what << " view " << kind << " " << named(image.size) << " to "
                                                    << named(size) << " at " << error.x << "," << error.y;
                EXPECT_LE(error.mean, 0.02) << what << " view " << kind << " " << named(size);
            }
        }
    }

    /// As a rectifier hands its camera out, in single precision.
    static ViewGeometry rounded(ViewGeometry geometry) {
        for (double* value :
             {&geometry.rectified.fx, &geometry.rectified.fy, &geometry.rectified.cx, &geometry.rectified.cy}) {
            *value = static_cast<double>(static_cast<float>(*value));
        }
        return geometry;
    }
};

INSTANTIATE_TEST_SUITE_P(Device, DeviceRectifier, testing::Values(kPixelCodeOnHost, kCuda), nameOf);

TEST_P(DeviceRectifier, DrawsThePlainViewsForEveryLensAtEverySizeWithinOneLevel) {
    std::mt19937 random(11);
    for (const NamedLens& lens : testLenses()) {
        const Size source{672, 376};
        const TestImage image = imageOf(source, Content::IN_GAMUT_NOISE, 0, random);
        for (const Size size : {source, Size{source.width / 2, source.height / 2}, Size{333, 201}, Size{7, 5}}) {
            expectPlainViews(cameraOf(lens, source), size.width == 333, size, image, 1, lens.name);
        }
    }
}

TEST_P(DeviceRectifier, DrawsTheLargestImageWithinOneLevel) {
    std::mt19937 random(12);
    const Size source{3840, 2160};
    const TestImage image = imageOf(source, Content::IN_GAMUT_NOISE, 0, random);
    expectPlainViews(cameraOf(testLenses()[4], source), false, source, image, 1, testLenses()[4].name);
}

TEST_P(DeviceRectifier, NoticesAnUploadThatFailsAndShowsNoOldFrame) {
    (void)setUp();
    process();
    gpu->refusesUploads = true;
    process();
    EXPECT_EQ(getView(RECTIFIED, kResolution, view, CPU), VIEW_WITHOUT_FRAME);
    EXPECT_TRUE(isBlack(view, CPU));
    gpu->refusesUploads = false;
    process();
    EXPECT_EQ(getView(RECTIFIED, kResolution, view, CPU), VIEW_DRAWN);
}

}  // namespace
}  // namespace oru
