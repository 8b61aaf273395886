#include "backends/rectifier/cpu/cpu_rectifier.hpp"

#include <gtest/gtest.h>

#include "doubles/scripted_factory.hpp"
#include "pictures.hpp"

namespace oru {
namespace {

using namespace rectifier;

constexpr Size kSize{320, 200};
constexpr Resolution kResolution{320, 200};

class CpuRectifier : public testing::Test {
public:
    CpuRectifier() : frame(makeFrame(kSize)) { camera = cameraOf(testLenses()[2], kSize); }

    static Mat makeFrame(Size size) {
        Mat mat;
        EXPECT_EQ(mat.alloc({static_cast<uint64_t>(size.width), static_cast<uint64_t>(size.height)}, U8_C2, CPU),
                  SUCCESS);
        auto* pixels = mat.getPtr<unsigned char>(CPU);
        for (int i = 0; i < size.width * size.height * 2; ++i) {
            pixels[i] = static_cast<unsigned char>(i % 2 == 0 ? 40 + i * 7 % 180 : 128);
        }
        mat.timestamp = 77;
        return mat;
    }

    static bool isBlack(const Mat& view, MEM memory) {
        const auto* pixels = view.getPtr<unsigned char>(memory);
        const std::size_t bytes = view.getStepBytes(memory) * view.getHeight();
        for (std::size_t i = 0; i < bytes; ++i) {
            const bool alpha = view.getDataType() == U8_C4 && i % 4 == 3;
            if (pixels[i] != (alpha ? 255 : 0)) {
                return false;
            }
        }
        return bytes > 0;
    }

    static std::vector<unsigned char> bytesOf(const Mat& view, MEM memory) {
        const auto* pixels = view.getPtr<unsigned char>(memory);
        return {pixels, pixels + view.getStepBytes(memory) * view.getHeight()};
    }

    ~CpuRectifier() override { (void)CollaboratorFactory::setProcessDefault(previous); }

    std::shared_ptr<CollaboratorFactory> platform = std::make_shared<doubles::ScriptedFactory>();
    std::shared_ptr<CollaboratorFactory> previous = CollaboratorFactory::setProcessDefault(platform);
    std::unique_ptr<MonoRectifier> rectifier = makeCpuRectifier(platform->gpu(), 2);
    CameraParameters camera;
    Mat frame;
    Mat view;
};

TEST_F(CpuRectifier, DeliversTheSameViewIntoHostAndDeviceMemory) {
    const CameraParameters rectified = rectifier->setup(camera, nullptr, false);
    EXPECT_EQ(rectified.fx, rectified.fy);
    EXPECT_EQ(rectified.distortion, (std::array<double, 12>{}));
    EXPECT_EQ(rectified.image_size, kResolution);
    rectifier->process(frame, nullptr);
    Mat onDevice;
    Mat onBoth;
    ASSERT_EQ(rectifier->getView(RECTIFIED, kResolution, view, CPU, nullptr), VIEW_DRAWN);
    ASSERT_EQ(rectifier->getView(RECTIFIED, kResolution, onDevice, GPU, nullptr), VIEW_DRAWN);
    ASSERT_EQ(onBoth.alloc(kResolution, U8_C4, CPU), SUCCESS);
    ASSERT_EQ(rectifier->getView(RECTIFIED, kResolution, onBoth, CPU_AND_GPU, nullptr), VIEW_DRAWN);
    EXPECT_FALSE(isBlack(view, CPU));
    EXPECT_EQ(bytesOf(onDevice, GPU), bytesOf(view, CPU));
    EXPECT_EQ(bytesOf(onBoth, GPU), bytesOf(view, CPU));
    EXPECT_EQ(bytesOf(onBoth, CPU), bytesOf(view, CPU));
    EXPECT_EQ(view.timestamp, 77U);
}

TEST_F(CpuRectifier, LeavesTheHostCopyAloneWhenOnlyTheDeviceIsAskedFor) {
    (void)rectifier->setup(camera, nullptr, false);
    rectifier->process(frame, nullptr);
    ASSERT_EQ(view.alloc(kResolution, U8_C1, CPU_AND_GPU), SUCCESS);
    view.getPtr<unsigned char>(CPU)[5] = 3;
    ASSERT_EQ(rectifier->getView(UNRECTIFIED_GRAY, kResolution, view, GPU, nullptr), VIEW_DRAWN);
    EXPECT_EQ(view.getPtr<unsigned char>(CPU)[5], 3);
    EXPECT_EQ(view.getPtr<unsigned char>(GPU)[5], frame.getPtr<unsigned char>(CPU)[10]);
}

TEST_F(CpuRectifier, TurnsEveryViewWhenFlipped) {
    for (const VIEW kind : {RECTIFIED_GRAY, UNRECTIFIED_GRAY}) {
        Mat turned;
        (void)rectifier->setup(camera, nullptr, false);
        rectifier->process(frame, nullptr);
        ASSERT_EQ(rectifier->getView(kind, kResolution, view, CPU, nullptr), VIEW_DRAWN);
        (void)rectifier->setup(camera, nullptr, true);
        rectifier->process(frame, nullptr);
        ASSERT_EQ(rectifier->getView(kind, kResolution, turned, CPU, nullptr), VIEW_DRAWN);
        std::vector<unsigned char> expected = bytesOf(view, CPU);
        std::reverse(expected.begin(), expected.end());
        const std::vector<unsigned char> actual = bytesOf(turned, CPU);
        for (std::size_t i = 0; i < expected.size(); ++i) {
            ASSERT_NEAR(actual[i], expected[i], 2) << kind << " " << i;
        }
    }
}

TEST_F(CpuRectifier, FailsWithABlackViewWhenItHasNothingToShow) {
    struct Row {
        const char* what;
        std::function<void(CpuRectifier&)> prepare;
        VIEW view;
        Resolution size;
        ViewResult result;
    };
    Mat otherSize = makeFrame({160, 100});
    Mat wrongType;
    ASSERT_EQ(wrongType.alloc(kResolution, U8_C1, CPU), SUCCESS);
    const auto setUp = [](CpuRectifier& self) { (void)self.rectifier->setup(self.camera, nullptr, false); };
    const std::vector<Row> rows{
        {"never set up", [](CpuRectifier& self) { self.rectifier->process(self.frame, nullptr); }, RECTIFIED,
         kResolution, VIEW_OF_OTHER_SIZE},
        {"no frame", setUp, RECTIFIED, kResolution, VIEW_WITHOUT_FRAME},
        {"wrong type", [&](CpuRectifier& self) { setUp(self), self.rectifier->process(wrongType, nullptr); },
         UNRECTIFIED, kResolution, VIEW_WITHOUT_FRAME},
        {"other size",
         [&](CpuRectifier& self) { setUp(self), self.rectifier->process(otherSize, nullptr); },
         UNRECTIFIED_GRAY,
         {160, 100},
         VIEW_OF_OTHER_SIZE},
        {"too large",
         [&](CpuRectifier& self) { setUp(self), self.rectifier->process(self.frame, nullptr); },
         RECTIFIED_GRAY,
         {321, 200},
         VIEW_NOT_SUPPORTED},
        {"freed",
         [&](CpuRectifier& self) {
             setUp(self), self.rectifier->process(self.frame, nullptr);
             self.rectifier->free();
             self.rectifier->free();
         },
         RECTIFIED, kResolution, VIEW_WITHOUT_FRAME},
        {"no lens",
         [](CpuRectifier& self) {
             CameraParameters blind = self.camera;
             blind.fx = 0;
             (void)self.rectifier->setup(blind, nullptr, false);
             self.rectifier->process(self.frame, nullptr);
         },
         RECTIFIED, kResolution, VIEW_WITHOUT_CAMERA},
    };
    for (const Row& row : rows) {
        rectifier = makeCpuRectifier(platform->gpu());
        row.prepare(*this);
        EXPECT_EQ(rectifier->getView(row.view, row.size, view, CPU_AND_GPU, nullptr), row.result) << row.what;
        EXPECT_TRUE(isBlack(view, CPU)) << row.what;
        EXPECT_TRUE(isBlack(view, GPU)) << row.what;
    }
}

TEST_F(CpuRectifier, StillShowsThePlainViewWithoutALens) {
    camera.fx = 0;
    (void)rectifier->setup(camera, nullptr, false);
    rectifier->process(frame, nullptr);
    ASSERT_EQ(rectifier->getView(UNRECTIFIED_GRAY, kResolution, view, CPU, nullptr), VIEW_DRAWN);
    EXPECT_EQ(view.getPtr<unsigned char>(CPU)[1], frame.getPtr<unsigned char>(CPU)[2]);
}

TEST_F(CpuRectifier, GivesTheSameViewAfterManyOtherSizesTookItsPlace) {
    (void)rectifier->setup(camera, nullptr, false);
    rectifier->process(frame, nullptr);
    ASSERT_EQ(rectifier->getView(RECTIFIED, {160, 100}, view, CPU, nullptr), VIEW_DRAWN);
    const std::vector<unsigned char> first = bytesOf(view, CPU);
    for (uint64_t width = 100; width < 107; ++width) {
        Mat other;
        ASSERT_EQ(rectifier->getView(RECTIFIED, {width, 60}, other, CPU, nullptr), VIEW_DRAWN);
    }
    ASSERT_EQ(rectifier->getView(RECTIFIED, {160, 100}, view, CPU, nullptr), VIEW_DRAWN);
    EXPECT_EQ(bytesOf(view, CPU), first);
}

}  // namespace
}  // namespace oru
