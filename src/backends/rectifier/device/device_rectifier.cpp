#include "backends/rectifier/device/device_rectifier.hpp"

#include <optional>

#include "backends/rectifier/device/ReducedImage.hpp"
#include "backends/rectifier/device/view_job.hpp"
#include "backends/rectifier/reference/RecentSizes.hpp"
#include "backends/rectifier/reference/camera_views.hpp"
#include "backends/rectifier/reference/notices.hpp"
#include "backends/rectifier/reference/reference_view.hpp"
#include "backends/rectifier/reference/runtime_memory.hpp"

namespace oru::rectifier {
namespace {

class DeviceRectifier final : public MonoRectifier {
public:
    DeviceRectifier(GpuRuntime& runtime, std::unique_ptr<DeviceWork> deviceWork)
        : gpu(runtime), work(std::move(deviceWork)), staging(runtime) {}
    ~DeviceRectifier() override { free(); }
    DeviceRectifier(const DeviceRectifier&) = delete;
    DeviceRectifier& operator=(const DeviceRectifier&) = delete;

    CameraParameters setup(CameraParameters& raw, CUstream_st* stream, bool flipped) override;
    void process(Mat& image, CUstream_st* stream) override;
    int getView(VIEW view, Resolution size, Mat& destination, MEM memory, CUstream_st* stream) override;
    void free() override;

private:
    struct Frame {
        PairImage image;
        Resolution size;
        Timestamp time;
    };
    struct Prepared {
        Prepared(GpuRuntime& runtime, const ViewJob& viewJob) : job(viewJob), reduced(runtime) {}

        ViewJob job;
        ReducedImage reduced;
        uint64_t reduced_frame = 0;  // whose number it holds
    };

    ViewResult draw(VIEW view, Resolution size, unsigned char* pixels, CUstream_st* stream);
    ViewResult drawImage(VIEW view, Size size, unsigned char* pixels, CUstream_st* stream);
    int run(const ViewJob& job, VIEW view, CUstream_st* stream);
    std::unique_ptr<Prepared> prepare(Size size, CUstream_st* stream);
    bool finish(CUstream_st* stream);
    void noticeFailure();

    GpuRuntime& gpu;
    std::unique_ptr<DeviceWork> work;
    CUevent_st* finished = nullptr;
    CameraViews views;
    std::optional<Frame> frame;
    uint64_t frameNumber = 0;
    bool failureNoticed = false;
    RecentSizes<Prepared> prepared;
    DeviceMemory staging;  // views that go to host memory only
};

CameraParameters DeviceRectifier::setup(CameraParameters& raw, CUstream_st*, bool flipped) {
    free();
    failureNoticed = false;
    return views.setUp(raw, flipped);
}

void DeviceRectifier::process(Mat& image, CUstream_st* stream) {
    frame.reset();
    const Resolution size{image.getWidth(), image.getHeight()};
    const auto* pixels = image.getPtr<unsigned char>(CPU);
    if (pixels == nullptr || image.getDataType() != U8_C2 || !isDrawable(size) || size.width % 2 != 0) {
        return;
    }
    if (image.alloc(size, U8_C2, CPU_AND_GPU) != SUCCESS) {
        noticeFailure();
        return;
    }
    auto* const uploaded = image.getPtr<unsigned char>(GPU);
    const std::size_t bytes = image.getStepBytes(GPU) * size.height;
    if (gpu.copyHostToDeviceAsync(uploaded, pixels, bytes, stream) != 0 || !finish(stream)) {
        noticeFailure();
        return;
    }
    ++frameNumber;
    frame = {pairImage(uploaded, toSize(size), kChromaSiting), size, image.timestamp};
}

int DeviceRectifier::getView(VIEW view, Resolution size, Mat& destination, MEM memory, CUstream_st* stream) {
    if (!isDrawable(size) || (memory & CPU_AND_GPU) == 0) {
        return VIEW_NOT_SUPPORTED;
    }
    if (destination.alloc(size, isGray(view) ? U8_C1 : U8_C4, memory) != SUCCESS) {
        return VIEW_WITHOUT_MEMORY;
    }
    const std::size_t step = destination.getStepBytes((memory & GPU) != 0 ? GPU : CPU);
    const std::size_t bytes = step * size.height;
    unsigned char* const pixels = (memory & GPU) != 0 ? destination.getPtr<unsigned char>(GPU) : staging.reserve(bytes);
    auto* const host = (memory & CPU) != 0 ? destination.getPtr<unsigned char>(CPU) : nullptr;
    ViewResult result = pixels == nullptr ? VIEW_WITHOUT_MEMORY : draw(view, size, pixels, stream);
    const bool copied =
        pixels == nullptr || host == nullptr || gpu.copyDeviceToHostAsync(host, pixels, bytes, stream) == 0;
    if (!copied || !finish(stream)) {
        result = VIEW_WITHOUT_DEVICE;
    }
    if (result == VIEW_WITHOUT_DEVICE || result == VIEW_WITHOUT_MEMORY) {
        noticeFailure();
        if (host != nullptr) {
            const Size viewSize = toSize(size);
            drawBlack({host, step, viewSize.width, viewSize.height, isGray(view)});
        }
    }
    destination.timestamp = result == VIEW_DRAWN ? frame->time : 0;
    return result;
}

void DeviceRectifier::free() {
    frame.reset();
    prepared.clear();
    views.forget();
    staging.release();
    if (finished != nullptr) {
        (void)gpu.cudaEventDestroy(std::exchange(finished, nullptr));
    }
}

ViewResult DeviceRectifier::draw(VIEW view, Resolution size, unsigned char* pixels, CUstream_st* stream) {
    const ViewResult result = views.check(view, size, frame ? &frame->size : nullptr);
    if (result == VIEW_DRAWN) {
        return drawImage(view, toSize(size), pixels, stream);
    }
    const auto plain = static_cast<VIEW>(isGray(view) ? UNRECTIFIED_GRAY : UNRECTIFIED);
    return run(blackJob(toSize(size), pixels), plain, stream) == 0 ? result : VIEW_WITHOUT_DEVICE;
}

ViewResult DeviceRectifier::drawImage(VIEW view, Size size, unsigned char* pixels, CUstream_st* stream) {
    Prepared* const entry = prepared.of(size, [&] { return prepare(size, stream); });
    if (entry == nullptr) {
        return VIEW_WITHOUT_MEMORY;
    }
    ViewJob job = entry->job;
    job.view = pixels;
    if (size == views.geometry().source) {
        job.image = frame->image;
    } else {
        if (entry->reduced_frame != frameNumber && work->reduce(entry->reduced.jobOf(frame->image), stream) != 0) {
            return VIEW_WITHOUT_DEVICE;
        }
        entry->reduced_frame = frameNumber;
        job.image = entry->reduced.image();
    }
    return run(job, view, stream) == 0 ? VIEW_DRAWN : VIEW_WITHOUT_DEVICE;
}

int DeviceRectifier::run(const ViewJob& job, VIEW view, CUstream_st* stream) {
    return isGray(view) ? work->drawGray(job, isRectified(view), stream)
                        : work->drawBgra(job, isRectified(view), stream);
}

/// Null when the device has no memory left.
std::unique_ptr<DeviceRectifier::Prepared> DeviceRectifier::prepare(Size size, CUstream_st* stream) {
    auto entry = std::make_unique<Prepared>(gpu, viewJob(views.geometry(), size));
    const bool isReduced = size != views.geometry().source;
    return isReduced && !entry->reduced.prepare(views.geometry().source, size, stream) ? nullptr : std::move(entry);
}

/// Waits for what this stream has been given so far.
bool DeviceRectifier::finish(CUstream_st* stream) {
    if (finished == nullptr && gpu.cudaEventCreate(&finished) != 0) {
        return false;
    }
    return gpu.cudaEventRecord(finished, stream) == 0 && gpu.cudaEventSynchronize(finished) == 0;
}

void DeviceRectifier::noticeFailure() {
    if (!std::exchange(failureNoticed, true)) {
        warn("The GPU refuses its work or has no memory left; pictures stay black.");
    }
}

}  // namespace

std::unique_ptr<MonoRectifier> makeDeviceRectifier(GpuRuntime& gpu, std::unique_ptr<DeviceWork> work) {
    return std::make_unique<DeviceRectifier>(gpu, std::move(work));
}

}  // namespace oru::rectifier
