#include "cpu_rectifier.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <thread>
#include <utility>

#include "fast_renderer.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "plain_view.hpp"

namespace oru {
namespace {

using namespace rectifier;

constexpr std::size_t kSizesKept = 4;
constexpr int kMostThreads = 4;
constexpr uint64_t kLargestSide = 16384;
constexpr int kGrayBit = 2;
constexpr int kUnrectifiedBit = 4;

bool isView(VIEW view) {
    return (view & ~(kGrayBit | kUnrectifiedBit)) == 0;
}

bool isDrawable(Resolution size) {
    return size.width >= 1 && size.height >= 1 && size.width <= kLargestSide && size.height <= kLargestSide;
}

Size toSize(Resolution size) {
    return {static_cast<int>(size.width), static_cast<int>(size.height)};
}

/// Host memory of the runtime, grown on demand.
class HostBuffer {
public:
    explicit HostBuffer(GpuRuntime& runtime) : gpu(runtime) {}
    ~HostBuffer() { release(); }
    HostBuffer(const HostBuffer&) = delete;
    HostBuffer& operator=(const HostBuffer&) = delete;

    /// Null when there is no memory.
    unsigned char* reserve(std::size_t bytes) {
        if (bytes > capacity) {
            release();
            memory = static_cast<unsigned char*>(gpu.hostAlloc(bytes));
            capacity = memory == nullptr ? 0 : bytes;
        }
        return memory;
    }

    void release() {
        if (memory != nullptr) {
            gpu.hostFree(std::exchange(memory, nullptr));
        }
        capacity = 0;
    }

private:
    GpuRuntime& gpu;
    unsigned char* memory = nullptr;
    std::size_t capacity = 0;
};

class CpuRectifier final : public MonoRectifier {
public:
    CpuRectifier(GpuRuntime& runtime, int threadCount) : gpu(runtime), threads(threadCount), staging(runtime) {}

    CameraParameters setup(CameraParameters& raw, CUstream_st*, bool flipped) override;
    void process(Mat& image, CUstream_st*) override;
    int getView(VIEW view, Resolution size, Mat& destination, MEM memory, CUstream_st* stream) override;
    void free() override;

private:
    struct Frame {
        YuyvFrame picture;
        Resolution size;
        Timestamp time;
    };
    struct Prepared {
        Size size;
        FastRenderer renderer;
    };

    [[nodiscard]] ViewResult check(VIEW view, Resolution size) const;
    ViewResult draw(VIEW view, Resolution size, const ViewTarget& target);
    FastRenderer& rendererOf(Size size);

    GpuRuntime& gpu;
    int threads;
    std::optional<RowPool> pool;
    ViewGeometry geometry{};
    Resolution frameSize;
    std::optional<Frame> frame;
    std::array<std::unique_ptr<Prepared>, kSizesKept> prepared;  // most recently used first
    HostBuffer staging;                                          // what goes to device memory only
};

CameraParameters CpuRectifier::setup(CameraParameters& raw, CUstream_st*, bool flipped) {
    free();
    CameraParameters rectified = raw;
    rectified.distortion = {};
    geometry = {Lens(raw), {}, {}, flipped};
    if (!isDrawable(raw.image_size)) {
        return rectified;
    }
    pool.emplace(threads - 1);
    frameSize = raw.image_size;
    geometry.source = toSize(frameSize);
    if (geometry.lens.usable()) {
        geometry.rectified = rectifiedCamera(geometry.lens, {raw.fx, raw.fy, raw.cx, raw.cy}, geometry.source);
    }
    if (geometry.rectified.fx == 0) {
        ORU_LOG(Warning, "{} The calibration of this camera gives no rectified view.", kTagInit);
        return rectified;
    }
    rectified.fx = rectified.fy = static_cast<float>(geometry.rectified.fx);
    rectified.cx = static_cast<float>(geometry.rectified.cx);
    rectified.cy = static_cast<float>(geometry.rectified.cy);
    geometry.rectified = {rectified.fx, rectified.fy, rectified.cx, rectified.cy};
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
        const Size pictureSize = toSize(size);
        frame = {{pixels, image.getStepBytes(CPU), pictureSize.width, pictureSize.height, kChromaSiting},
                 size,
                 image.timestamp};
    }
}

int CpuRectifier::getView(VIEW view, Resolution size, Mat& destination, MEM memory, CUstream_st*) {
    const bool gray = (view & kGrayBit) != 0;
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
    prepared = {};
    pool.reset();
    geometry = {};
    frameSize = {};
    staging.release();
}

ViewResult CpuRectifier::check(VIEW view, Resolution size) const {
    if (!frame) {
        return VIEW_WITHOUT_FRAME;
    }
    if (frame->size != frameSize) {
        return VIEW_OF_OTHER_SIZE;
    }
    if (!isView(view) || size.width > frameSize.width || size.height > frameSize.height || frameSize.width % 2 != 0) {
        return VIEW_NOT_SUPPORTED;
    }
    const bool rectified = (view & kUnrectifiedBit) == 0;
    return rectified && geometry.rectified.fx == 0 ? VIEW_WITHOUT_CAMERA : VIEW_DRAWN;
}

ViewResult CpuRectifier::draw(VIEW view, Resolution size, const ViewTarget& target) {
    const ViewResult result = check(view, size);
    if (result == VIEW_DRAWN) {
        rendererOf(toSize(size)).draw(frame->picture, (view & kUnrectifiedBit) == 0, target);
    } else {
        drawBlack(target);
    }
    return result;
}

FastRenderer& CpuRectifier::rendererOf(Size size) {
    auto found = std::find_if(prepared.begin(), prepared.end(),
                              [&](const auto& entry) { return entry == nullptr || entry->size == size; });
    if (found == prepared.end()) {
        --found;
        found->reset();
    }
    if (*found == nullptr) {
        *found = std::make_unique<Prepared>(Prepared{size, FastRenderer(geometry, size, *pool)});
    }
    std::rotate(prepared.begin(), found, found + 1);
    return prepared.front()->renderer;
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
