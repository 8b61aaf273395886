#pragma once

#include "backends/rectifier/device/column_pixels.hpp"
#include "backends/rectifier/device/device_work.hpp"

namespace oru::rectifier {

/// The pixel code of a device, run here at once.
class HostDeviceWork final : public DeviceWork {
public:
    int reduce(const ReduceJob& job, CUstream_st*) override {
        for (int row = 0; row < job.height; ++row) {
            for (int pair = 0; pair < job.pairs_per_row; ++pair) {
                job.reduced[row * job.pairs_per_row + pair] = reducedPairAt(job, pair, row);
            }
        }
        return 0;
    }
    int drawBgra(const ViewJob& job, bool rectified, CUstream_st*) override {
        draw(job, rectified ? drawColumn<true, false> : drawColumn<false, false>);
        return 0;
    }
    int drawGray(const ViewJob& job, bool rectified, CUstream_st*) override {
        draw(job, rectified ? drawColumn<true, true> : drawColumn<false, true>);
        return 0;
    }

private:
    static void draw(const ViewJob& job, void (*drawPixels)(const ViewJob&, int, int)) {
        for (int v = 0; v < job.height; v += kColumnRows) {
            for (int u = 0; u < job.width; ++u) {
                drawPixels(job, u, v);
            }
        }
    }
};

}  // namespace oru::rectifier
