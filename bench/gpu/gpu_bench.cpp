// What the views cost on a CUDA device: each kernel's bandwidth beside that of the device's own copy, and the whole way
// of a frame, with upload and return. Usage: gpu_bench [ROUNDS]. Exit 77 where no device answers.
#include <cuda_runtime_api.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "backends/gpu/cuda/cuda_gpu_runtime.hpp"
#include "backends/rectifier/cuda/cuda_rectifier.hpp"
#include "backends/rectifier/device/ReducedImage.hpp"
#include "backends/rectifier/device/device_work.hpp"
#include "backends/rectifier/device/view_job.hpp"
#include "backends/rectifier/reference/camera_views.hpp"
#include "doubles/GpuFactory.hpp"

namespace {

using namespace oru;
using namespace oru::rectifier;

constexpr int kSkipped = 77;
constexpr int kBuffers = 6;  // taken by turns, so that no cache holds what comes next
constexpr int kLaunches = 5 * kBuffers;
constexpr double kGoal = 0.6;

struct Bench {
    GpuRuntime& gpu;
    CUstream_st* stream;
    int rounds;
    double copy_bytes_per_second = 0;
};

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "gpu_bench: %s failed: %s\n", what, cudaGetErrorString(cudaGetLastError()));
    std::exit(1);
}

void check(bool succeeded, const char* what) {
    if (!succeeded) {
        fail(what);
    }
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// Seconds that the device spends on one of `run(0)`, `run(1)`, ..., the median of all rounds.
template <class Run>
double deviceSeconds(const Bench& bench, Run run) {
    cudaEvent_t begin = nullptr;
    cudaEvent_t end = nullptr;
    check(cudaEventCreate(&begin) == cudaSuccess && cudaEventCreate(&end) == cudaSuccess, "event");
    std::vector<double> seconds;
    for (int round = -1; round < bench.rounds; ++round) {  // the first warms up
        check(cudaEventRecord(begin, bench.stream) == cudaSuccess, "event");
        for (int i = 0; i < kLaunches; ++i) {
            check(run(i % kBuffers) == 0, "launch");
        }
        check(cudaEventRecord(end, bench.stream) == cudaSuccess && cudaEventSynchronize(end) == cudaSuccess, "wait");
        float milliseconds = 0;
        check(cudaEventElapsedTime(&milliseconds, begin, end) == cudaSuccess, "event");
        if (round >= 0) {
            seconds.push_back(static_cast<double>(milliseconds) / 1000 / kLaunches);
        }
    }
    (void)cudaEventDestroy(begin);
    (void)cudaEventDestroy(end);
    return median(seconds);
}

/// A strong lens with every coefficient in use.
CameraParameters cameraOf(Size size) {
    CameraParameters camera;
    camera.fx = camera.fy = 0.52F * static_cast<float>(size.width);
    camera.cx = static_cast<float>(size.width) / 2 + 7;
    camera.cy = static_cast<float>(size.height) / 2 - 5;
    camera.distortion = {0.42, 0.05, 0.001, -0.0008, 0.001, 0.75, 0.14, 0.006, 0.0012, -0.0002, -0.0009, 0.0003};
    camera.image_size = {static_cast<uint64_t>(size.width), static_cast<uint64_t>(size.height)};
    return camera;
}

/// Frames and views of one size in device memory, drawn without the rectifier around.
class Kernels {
public:
    Kernels(Bench& owner, Size source, Size view) : bench(owner), size(view), full(source == view), reduced(owner.gpu) {
        CameraViews views;
        (void)views.setUp(cameraOf(source), false);
        job = viewJob(views.geometry(), view);
        check(full || reduced.prepare(source, view, bench.stream), "memory");
        const auto frameBytes = static_cast<std::size_t>(source.width) * 2 * static_cast<std::size_t>(source.height);
        const auto viewBytes = static_cast<std::size_t>(view.width) * 4 * static_cast<std::size_t>(view.height);
        std::vector<unsigned char> content(frameBytes);
        for (std::size_t i = 0; i < content.size(); ++i) {
            content[i] = static_cast<unsigned char>(16 + i * 2654435761U % 200);
        }
        for (int i = 0; i < kBuffers; ++i) {
            frames.push_back(bench.gpu.deviceAlloc(frameBytes));
            targets.push_back(bench.gpu.deviceAlloc(viewBytes));
            check(frames.back() != nullptr && targets.back() != nullptr, "memory");
            check(bench.gpu.copyHostToDevice(frames.back(), content.data(), frameBytes) == 0, "upload");
        }
        sourceBytes = static_cast<double>(frameBytes);
        sourceSize = source;
    }
    ~Kernels() {
        for (int i = 0; i < kBuffers; ++i) {
            bench.gpu.deviceFree(frames[static_cast<std::size_t>(i)]);
            bench.gpu.deviceFree(targets[static_cast<std::size_t>(i)]);
        }
    }
    Kernels(const Kernels&) = delete;
    Kernels& operator=(const Kernels&) = delete;

    /// What is read and written once, of what the device's own copy would take.
    double report(DeviceWork& work, bool rectified, bool gray) {
        const double seconds = deviceSeconds(bench, [&](int i) { return draw(work, rectified, gray, i); });
        const double bytes = sourceBytes + static_cast<double>(size.width) * size.height * (gray ? 1 : 4);
        const double share = bytes / seconds / bench.copy_bytes_per_second;
        std::printf("%4dx%-4d -> %4dx%-4d  %-12s %-5s %9.1f us %8.1f GB/s %5.0f %% of copy\n", sourceSize.width,
                    sourceSize.height, size.width, size.height, rectified ? "rectified" : "unrectified",
                    gray ? "gray" : "BGRA", seconds * 1e6, bytes / seconds / 1e9, share * 100);
        return share;
    }

private:
    int draw(DeviceWork& work, bool rectified, bool gray, int index) {
        const auto at = static_cast<std::size_t>(index);
        ViewJob mine = job;
        mine.view = static_cast<unsigned char*>(targets[at]);
        mine.image = pairImage(frames[at], sourceSize, kChromaSiting);
        if (!full) {
            if (work.reduce(reduced.jobOf(mine.image), bench.stream) != 0) {
                return 1;
            }
            mine.image = reduced.image();
        }
        return gray ? work.drawGray(mine, rectified, bench.stream) : work.drawBgra(mine, rectified, bench.stream);
    }

    Bench& bench;
    Size size;
    bool full;
    ReducedImage reduced;
    Size sourceSize{};
    ViewJob job{};
    double sourceBytes = 0;
    std::vector<void*> frames;
    std::vector<void*> targets;
};

/// Bytes read and written each second by the device's own copy.
double copyBandwidth(const Bench& bench) {
    constexpr std::size_t kBytes = std::size_t{128} << 20;
    std::vector<void*> memories;
    for (int i = 0; i < 2; ++i) {
        memories.push_back(bench.gpu.deviceAlloc(kBytes));
        check(memories.back() != nullptr, "memory");
    }
    const double seconds = deviceSeconds(bench, [&](int) {
        return cudaMemcpyAsync(memories[1], memories[0], kBytes, cudaMemcpyDeviceToDevice, bench.stream) == cudaSuccess
                   ? 0
                   : 1;
    });
    for (void* memory : memories) {
        bench.gpu.deviceFree(memory);
    }
    return 2.0 * kBytes / seconds;
}

/// process() and getView() as the camera calls them, on the wall clock.
void reportFrames(const Bench& bench, Size source, MEM memory) {
    const auto rectifier = makeCudaRectifier(bench.gpu);
    CameraParameters camera = cameraOf(source);
    (void)rectifier->setup(camera, bench.stream, false);
    Mat frame;
    Mat view;
    check(frame.alloc(camera.image_size, U8_C2, CPU_AND_GPU) == SUCCESS, "memory");
    std::fill_n(frame.getPtr<unsigned char>(CPU), frame.getStepBytes(CPU) * frame.getHeight(),
                static_cast<unsigned char>(128));
    std::vector<double> upload;
    std::vector<double> drawing;
    for (int round = -1; round < bench.rounds; ++round) {
        const auto begin = std::chrono::steady_clock::now();
        rectifier->process(frame, bench.stream);
        const auto uploaded = std::chrono::steady_clock::now();
        check(rectifier->getView(RECTIFIED, camera.image_size, view, memory, bench.stream) == VIEW_DRAWN, "view");
        const auto drawn = std::chrono::steady_clock::now();
        if (round >= 0) {
            upload.push_back(std::chrono::duration<double, std::micro>(uploaded - begin).count());
            drawing.push_back(std::chrono::duration<double, std::micro>(drawn - uploaded).count());
        }
    }
    std::printf("%4dx%-4d process() %9.1f us, getView() of the rectified BGRA view to %s %9.1f us\n", source.width,
                source.height, median(upload), memory == CPU ? "the host" : "the device", median(drawing));
    rectifier->free();
}

}  // namespace

int main(int count, char** arguments) {
    const int rounds = count > 1 ? std::max(1, std::atoi(arguments[1])) : 21;
    std::string absence;
    auto runtime = makeCudaGpuRuntime(absence);
    if (runtime == nullptr) {
        std::printf("gpu_bench: skipped, %s\n", absence.c_str());
        return kSkipped;
    }
    GpuRuntime& gpu = *runtime;
    (void)CollaboratorFactory::setProcessDefault(std::make_shared<doubles::GpuFactory>(std::move(runtime)));
    CUstream_st* stream = nullptr;
    check(gpu.cudaSetDevice(0) == 0 && gpu.cudaStreamCreate(&stream) == 0, "stream");
    Bench bench{gpu, stream, rounds};
    bench.copy_bytes_per_second = copyBandwidth(bench);
    std::printf("%s\ncopy: %.1f GB/s read and written; medians of %d rounds\n", gpu.description().c_str(),
                bench.copy_bytes_per_second / 1e9, rounds);

    const auto work = makeCudaWork();
    double share = 0;
    for (const Size source : {Size{3840, 2160}, Size{1920, 1200}, Size{960, 600}}) {
        for (const Size view : {source, Size{source.width / 2, source.height / 2}}) {
            Kernels kernels(bench, source, view);
            for (const bool rectified : {true, false}) {
                for (const bool gray : {false, true}) {
                    const double reached = kernels.report(*work, rectified, gray);
                    const bool isGoal = source.width == 3840 && view == source && rectified && !gray;
                    share = isGoal ? reached : share;
                }
            }
        }
        reportFrames(bench, source, GPU);
        reportFrames(bench, source, CPU);
    }
    std::printf("goal, %.0f %% of copy for 3840x2160 rectified BGRA: %s\n", kGoal * 100,
                share >= kGoal ? "reached" : "NOT reached");
    (void)gpu.cudaStreamDestroy(stream);
    return 0;
}
