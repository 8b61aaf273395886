#include <cuda_runtime.h>

#include "backends/rectifier/device/column_pixels.hpp"
#include "backends/rectifier/device/device_work.hpp"

namespace oru::rectifier {
namespace {

constexpr int kBlockWidth = 32;
constexpr int kBlockHeight = 8;

__device__ int columnOfThread() {
    return static_cast<int>(blockIdx.x * kBlockWidth + threadIdx.x);
}
__device__ int rowOfThread() {
    return static_cast<int>(blockIdx.y * kBlockHeight + threadIdx.y);
}

template <bool kRectified, bool kGray>
__global__ void __launch_bounds__(kBlockWidth* kBlockHeight) drawView(const __grid_constant__ ViewJob job) {
    const int u = columnOfThread();
    const int v = rowOfThread() * kColumnRows;
    if (u < job.width && v < job.height) {
        drawColumn<kRectified, kGray>(job, u, v);
    }
}

__global__ void __launch_bounds__(kBlockWidth* kBlockHeight) reduceImage(const __grid_constant__ ReduceJob job) {
    const int pair = columnOfThread();
    const int row = rowOfThread();
    if (pair < job.pairs_per_row && row < job.height) {
        job.reduced[static_cast<std::ptrdiff_t>(row) * job.pairs_per_row + pair] = reducedPairAt(job, pair, row);
    }
}

/// One thread for each of `columns` by `rows`. The error is that of this launch, whatever the thread met before.
template <class Job>
int launch(void (*kernel)(Job), Job job, int columns, int rows, CUstream_st* stream) {
    const dim3 block(kBlockWidth, kBlockHeight);
    const dim3 grid(static_cast<unsigned>((columns + kBlockWidth - 1) / kBlockWidth),
                    static_cast<unsigned>((rows + kBlockHeight - 1) / kBlockHeight));
    void* arguments[] = {&job};
    return static_cast<int>(cudaLaunchKernel(reinterpret_cast<const void*>(kernel), grid, block, arguments, 0, stream));
}

int columnsDown(const ViewJob& job) {
    return (job.height + kColumnRows - 1) / kColumnRows;
}

class CudaWork final : public DeviceWork {
public:
    int reduce(const ReduceJob& job, CUstream_st* stream) override {
        return launch<ReduceJob>(reduceImage, job, job.pairs_per_row, job.height, stream);
    }
    int drawBgra(const ViewJob& job, bool rectified, CUstream_st* stream) override {
        return launch<ViewJob>(rectified ? drawView<true, false> : drawView<false, false>, job, job.width,
                               columnsDown(job), stream);
    }
    int drawGray(const ViewJob& job, bool rectified, CUstream_st* stream) override {
        return launch<ViewJob>(rectified ? drawView<true, true> : drawView<false, true>, job, job.width,
                               columnsDown(job), stream);
    }
};

}  // namespace

std::unique_ptr<DeviceWork> makeCudaWork() {
    return std::make_unique<CudaWork>();
}

}  // namespace oru::rectifier
