#pragma once

#include "backends/rectifier/cuda/device_work.hpp"

namespace oru::rectifier {

/// The pixel code of a device, run here at once.
class HostDeviceWork final : public DeviceWork {
public:
    int reduce(const ReduceJob& job, CUstream_st*) override {
        for (int row = 0; row < job.height; ++row) {
            for (int pair = 0; pair < job.pairsPerRow; ++pair) {
                job.reduced[row * job.pairsPerRow + pair] = reducedPairAt(job, pair, row);
            }
        }
        return 0;
    }
    int drawBgra(const ViewJob& job, bool rectified, CUstream_st*) override {
        auto* out = reinterpret_cast<std::uint32_t*>(job.view);
        forEachPixel(job, rectified, [&](const Sight& sight) { *out++ = bgraAt(job.picture, sight); });
        return 0;
    }
    int drawGray(const ViewJob& job, bool rectified, CUstream_st*) override {
        unsigned char* out = job.view;
        forEachPixel(job, rectified, [&](const Sight& sight) { *out++ = grayAt(job.picture, sight); });
        return 0;
    }

private:
    template <class Draw>
    static void forEachPixel(const ViewJob& job, bool rectified, Draw draw) {
        for (int v = 0; v < job.height; ++v) {
            for (int u = 0; u < job.width; ++u) {
                draw(rectified ? rectifiedSight(job, u, v) : unrectifiedSight(job, u, v));
            }
        }
    }
};

}  // namespace oru::rectifier
