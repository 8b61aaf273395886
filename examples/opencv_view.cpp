// Looks at the camera's images with OpenCV, without a copy: mean brightness and contrast of ten gray frames.
#include <cstdio>

#include "oru/CameraOne.hpp"
#include "oru/interop/opencv.hpp"

int main() {
    oru::CameraOne camera;
    if (camera.open({}) != oru::SUCCESS) {
        return 1;
    }
    oru::Mat image;
    for (int frame = 0; frame < 10; ++frame) {
        if (camera.grab() != oru::SUCCESS || camera.retrieveImage(image, oru::RECTIFIED_GRAY) != oru::SUCCESS) {
            return 1;
        }
        const cv::Mat gray = oru::interop::asCvMat(image);  // the same pixels, until the next retrieveImage
        cv::Scalar mean;
        cv::Scalar deviation;
        cv::meanStdDev(gray, mean, deviation);
        std::printf("%d x %d: mean %.1f, deviation %.1f\n", gray.cols, gray.rows, mean[0], deviation[0]);
    }
    camera.close();
    return 0;
}
