#include "backends/rectifier/cpu/cpu_rectifier.hpp"

#include <algorithm>
#include <optional>
#include <thread>

#include "backends/rectifier/cpu/FastRenderer.hpp"
#include "backends/rectifier/reference/RecentSizes.hpp"
#include "backends/rectifier/reference/reference_view.hpp"
#include "backends/rectifier/reference/runtime_memory.hpp"

namespace oru {
namespace {

using namespace rectifier;

constexpr int kMostThreads = 4;

class CpuRectifier final : public MonoRectifier {
public:
    CpuRectifier(GpuRuntime& runtime, int threadCount) : gpu(runtime), threads(threadCount), staging(runtime) {}

    CameraParameters setup(CameraParameters& raw, CUstream_st*, bool flipped) override;
    void process(Mat& image, CUstream_st*) override;
    int getView(VIEW view, Resolution size, Mat& destination, MEM memory, CUstream_st* stream) override;
    void free() override;

private:
    struct Frame {
        YuyvFrame image;
        Resolution size;
        Timestamp time;
    };

    ViewResult draw(VIEW view, Resolution size, const ViewTarget& target);

    GpuRuntime& gpu;
    int threads;
    std::optional<RowPool> pool;
    CameraViews views;
    std::optional<Frame> frame;
    RecentSizes<FastRenderer> prepared;
    HostMemory staging;  // what goes to device memory only
};

CameraParameters CpuRectifier::setup(CameraParameters& raw, CUstream_st*, bool flipped) {
    free();
    const CameraParameters rectified = views.setUp(raw, flipped);
    if (views.isSetUp()) {
        pool.emplace(threads - 1);
    }
    return rectified;
}

void CpuRectifier::process(Mat& image, CUstream_st*) {
    frame.reset();
    const auto* pixels = image.getPtr<unsigned char>(CPU);
    if (pixels == nullptr || image.getDataType() != U8_C2) {
        return;
    }
    const Resolution size{image.getWidth(), image.getHeight()};
    if (isDrawable(size)) {
        const Size imageSize = toSize(size);
        frame = {
            {pixels, image.getStepBytes(CPU), imageSize.width, imageSize.height, kChromaSiting}, size, image.timestamp};
    }
}

int CpuRectifier::getView(VIEW view, Resolution size, Mat& destination, MEM memory, CUstream_st*) {
    const bool gray = isGray(view);
    if (!isDrawable(size) || (memory & CPU_AND_GPU) == 0) {
        return VIEW_NOT_SUPPORTED;
    }
    if (destination.alloc(size, gray ? U8_C1 : U8_C4, memory) != SUCCESS) {
        return VIEW_WITHOUT_MEMORY;
    }
    const bool toHost = (memory & CPU) != 0;
    const std::size_t step = toHost ? destination.getStepBytes(CPU) : destination.getStepBytes(GPU);
    const std::size_t bytes = step * size.height;
    unsigned char* pixels = toHost ? destination.getPtr<unsigned char>(CPU) : staging.reserve(bytes);
    if (pixels == nullptr) {
        return VIEW_WITHOUT_MEMORY;
    }
    const Size viewSize = toSize(size);
    const ViewTarget target{pixels, step, viewSize.width, viewSize.height, gray};
    const ViewResult result = draw(view, size, target);
    if ((memory & GPU) != 0 && gpu.copyHostToDevice(destination.getPtr<unsigned char>(GPU), pixels, bytes) != 0) {
        return VIEW_WITHOUT_MEMORY;
    }
    destination.timestamp = result == VIEW_DRAWN ? frame->time : 0;
    return result;
}

void CpuRectifier::free() {
    frame.reset();
    prepared.clear();
    pool.reset();
    views.forget();
    staging.release();
}

ViewResult CpuRectifier::draw(VIEW view, Resolution size, const ViewTarget& target) {
    const ViewResult result = views.check(view, size, frame ? &frame->size : nullptr);
    if (result == VIEW_DRAWN) {
        const Size viewSize = toSize(size);
        prepared.of(viewSize, [&] { return std::make_unique<FastRenderer>(views.geometry(), viewSize, *pool); })
            ->draw(frame->image, isRectified(view), target);
    } else {
        drawBlack(target);
    }
    return result;
}

}  // namespace

std::unique_ptr<MonoRectifier> makeCpuRectifier(GpuRuntime& gpu) {
    const int processors = static_cast<int>(std::thread::hardware_concurrency());
    return makeCpuRectifier(gpu, std::clamp(processors / 2, 1, kMostThreads));
}

std::unique_ptr<MonoRectifier> makeCpuRectifier(GpuRuntime& gpu, int threads) {
    return std::make_unique<CpuRectifier>(gpu, std::max(threads, 1));
}

}  // namespace oru
