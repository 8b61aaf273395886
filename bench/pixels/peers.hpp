#pragma once

#include <functional>
#include <string>
#include <vector>

#include "backends/rectifier/reference/reference_renderer.hpp"
#include "oru/types.hpp"

namespace oru::bench {

/// Draws a view of a packed image of the size it was made for into rows without padding.
using DrawView = std::function<void(const unsigned char* packed, unsigned char* out)>;

struct Peer {
    std::string name;
    DrawView draw;
};

struct ViewKind {
    std::string name;
    bool rectified;
    bool gray;
    bool half;

    [[nodiscard]] rectifier::Size viewSize(rectifier::Size source) const {
        return half ? rectifier::Size{source.width / 2, source.height / 2} : source;
    }
    [[nodiscard]] std::size_t viewBytes(rectifier::Size source) const {
        const rectifier::Size size = viewSize(source);
        return static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * (gray ? 1 : 4);
    }
};

/// What a user would write with OpenCV: cvtColor, then remap with fixed-point maps made once (of half size for half
/// views), or resize by area where nothing is rectified. And with libyuv, where it has the operation.
std::vector<Peer> peersOf(const ViewKind& kind, const CameraParameters& camera, const rectifier::Intrinsics& rectified);

/// Threads that OpenCV may use from now on.
void setPeerThreads(int threads);

/// The conversions of recording and streaming, by libyuv.
void peerToI420(const unsigned char* packed, unsigned char* planes, int width, int height);
void peerFromI422(const unsigned char* planes, unsigned char* packed, int width, int height);

}  // namespace oru::bench
