// Writes one gray image at half size as gray.pgm: luma comes without a colour conversion.
#include <cstdio>

#include "oru/CameraOne.hpp"

namespace {

bool writePgm(const oru::Mat& image, const char* path) {
    std::FILE* file = std::fopen(path, "wb");
    if (file == nullptr) {
        return false;
    }
    std::fprintf(file, "P5\n%zu %zu\n255\n", image.getWidth(), image.getHeight());
    const auto* row = image.getPtr<unsigned char>(oru::CPU);
    std::size_t written = 0;
    for (std::size_t y = 0; y < image.getHeight(); ++y, row += image.getStepBytes(oru::CPU)) {
        written += std::fwrite(row, 1, image.getWidth(), file);
    }
    return std::fclose(file) == 0 && written == image.getWidth() * image.getHeight();
}

}  // namespace

int main() {
    oru::InitParametersOne parameters;
    parameters.requested_resolution = oru::HD1200;
    parameters.requested_fps = 60;

    oru::CameraOne camera;
    oru::Mat image;
    if (camera.open(parameters) != oru::SUCCESS || camera.grab() != oru::SUCCESS) {
        return 1;
    }
    const oru::ERROR_CODE result = camera.retrieveImage(image, oru::RECTIFIED_GRAY, oru::CPU, {960, 600});
    if (result != oru::SUCCESS || !writePgm(image, "gray.pgm")) {
        std::fprintf(stderr, "no picture: %s\n", oru::toString(result).c_str());
        return 1;
    }
    std::printf("gray.pgm: %zu x %zu\n", image.getWidth(), image.getHeight());
    return 0;
}
