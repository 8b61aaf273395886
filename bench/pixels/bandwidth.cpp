#include "bench/pixels/bandwidth.hpp"

#include <cstdint>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "bench/pixels/bandwidth.cpp"
#include <hwy/foreach_target.h>
// Must follow foreach_target.h.
#include <hwy/cache_control.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace oru::bench::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

/// A block of input, then its share of output.
void touch(const unsigned char* in, std::size_t inBytes, unsigned char* out, std::size_t outBytes) {
    const hn::ScalableTag<uint8_t> d;
    const std::size_t lanes = hn::Lanes(d);
    constexpr std::size_t kBlock = 4096;
    auto sum = hn::Zero(d);
    std::size_t written = 0;
    for (std::size_t read = 0; read + kBlock <= inBytes; read += kBlock) {
        for (std::size_t i = 0; i < kBlock; i += lanes) {
            sum = hn::Xor(sum, hn::LoadU(d, in + read + i));
        }
        const std::size_t due = (read + kBlock) * outBytes / inBytes / lanes * lanes;
        for (; written < due; written += lanes) {
            hn::Stream(sum, d, out + written);
        }
    }
    hwy::FlushStream();
}

}  // namespace oru::bench::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace oru::bench {

HWY_EXPORT(touch);

void touchMemory(const unsigned char* in, std::size_t inBytes, unsigned char* out, std::size_t outBytes) {
    HWY_DYNAMIC_DISPATCH(touch)(in, inBytes, out, outBytes);
}

}  // namespace oru::bench
#endif
