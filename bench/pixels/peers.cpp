#include "bench/pixels/peers.hpp"

#include <libyuv.h>

#include <memory>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

namespace oru::bench {
namespace {

using rectifier::Intrinsics;
using rectifier::Size;

cv::Mat matrixOf(const Intrinsics& intrinsics) {
    return (cv::Mat_<double>(3, 3) << intrinsics.fx, 0, intrinsics.cx, 0, intrinsics.fy, intrinsics.cy, 0, 0, 1);
}

/// Everything that OpenCV keeps from frame to frame.
struct OpenCv {
    Size source;
    Size view;
    ViewKind kind;
    cv::Mat converted;
    cv::Mat map_xy;
    cv::Mat map_shares;

    void draw(const unsigned char* packed, unsigned char* out) {
        const cv::Mat in(source.height, source.width, CV_8UC2, const_cast<unsigned char*>(packed));  // read only
        cv::Mat target(view.height, view.width, kind.gray ? CV_8UC1 : CV_8UC4, out);
        const bool direct = !kind.rectified && !kind.half;
        cv::cvtColor(in, direct ? target : converted,
                     kind.gray ? static_cast<int>(cv::COLOR_YUV2GRAY_YUYV) : static_cast<int>(cv::COLOR_YUV2BGRA_YUYV));
        if (kind.rectified) {
            cv::remap(converted, target, map_xy, map_shares, cv::INTER_LINEAR);
        } else if (kind.half) {
            cv::resize(converted, target, target.size(), 0, 0, cv::INTER_AREA);
        }
    }
};

Peer openCv(const ViewKind& kind, const CameraParameters& camera, const Intrinsics& rectified) {
    auto state = std::make_shared<OpenCv>();
    state->kind = kind;
    state->source = {static_cast<int>(camera.image_size.width), static_cast<int>(camera.image_size.height)};
    state->view = kind.viewSize(state->source);
    if (kind.rectified) {
        const std::vector<double> distortion(camera.distortion.begin(), camera.distortion.end());
        Intrinsics view = rectified;
        if (kind.half) {
            view = {rectified.fx / 2, rectified.fy / 2, (rectified.cx + 0.5) / 2 - 0.5, (rectified.cy + 0.5) / 2 - 0.5};
        }
        cv::initUndistortRectifyMap(matrixOf({camera.fx, camera.fy, camera.cx, camera.cy}), distortion, cv::Mat(),
                                    matrixOf(view), cv::Size(state->view.width, state->view.height), CV_16SC2,
                                    state->map_xy, state->map_shares);
    }
    return {"OpenCV", [state](const unsigned char* packed, unsigned char* out) { state->draw(packed, out); }};
}

/// libyuv has no rectification; half views are converted at full size and halved by its box filter.
Peer libYuv(const ViewKind& kind, Size source) {
    auto full = std::make_shared<std::vector<unsigned char>>(
        kind.half ? static_cast<std::size_t>(source.width) * static_cast<std::size_t>(source.height) * 4 : 0);
    return {"libyuv", [=](const unsigned char* packed, unsigned char* out) {
                const int w = source.width;
                const int h = source.height;
                unsigned char* converted = kind.half ? full->data() : out;
                if (kind.gray) {
                    libyuv::YUY2ToY(packed, 2 * w, converted, w, w, h);
                } else {
                    libyuv::YUY2ToARGB(packed, 2 * w, converted, 4 * w, w, h);
                }
                if (kind.half && kind.gray) {
                    libyuv::ScalePlane(converted, w, w, h, out, w / 2, w / 2, h / 2, libyuv::kFilterBox);
                } else if (kind.half) {
                    libyuv::ARGBScale(converted, 4 * w, w, h, out, 2 * w, w / 2, h / 2, libyuv::kFilterBox);
                }
            }};
}

}  // namespace

std::vector<Peer> peersOf(const ViewKind& kind, const CameraParameters& camera, const Intrinsics& rectified) {
    std::vector<Peer> peers{openCv(kind, camera, rectified)};
    if (!kind.rectified) {
        peers.push_back(
            libYuv(kind, {static_cast<int>(camera.image_size.width), static_cast<int>(camera.image_size.height)}));
    }
    return peers;
}

void setPeerThreads(int threads) {
    cv::setNumThreads(threads);
}

void peerToI420(const unsigned char* packed, unsigned char* planes, int width, int height) {
    unsigned char* u = planes + static_cast<std::ptrdiff_t>(width) * height;
    unsigned char* v = u + static_cast<std::ptrdiff_t>(width) * height / 4;
    libyuv::YUY2ToI420(packed, 2 * width, planes, width, u, width / 2, v, width / 2, width, height);
}

void peerFromI422(const unsigned char* planes, unsigned char* packed, int width, int height) {
    const unsigned char* u = planes + static_cast<std::ptrdiff_t>(width) * height;
    const unsigned char* v = u + static_cast<std::ptrdiff_t>(width) * height / 2;
    libyuv::I422ToYUY2(planes, width, u, width / 2, v, width / 2, packed, 2 * width, width, height);
}

}  // namespace oru::bench
