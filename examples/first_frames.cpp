// Opens the first free camera and looks at thirty frames.
#include <cstdio>

#include "oru/CameraOne.hpp"

int main() {
    oru::CameraOne camera;
    const oru::ERROR_CODE opened = camera.open({});
    if (opened != oru::SUCCESS) {
        std::fprintf(stderr, "cannot open a camera: %s\n", oru::toString(opened).c_str());
        return 1;
    }

    oru::Mat image;  // allocated by the first retrieveImage, then reused
    for (int frame = 0; frame < 30; ++frame) {
        if (camera.grab() != oru::SUCCESS || camera.retrieveImage(image) != oru::SUCCESS) {
            return 1;
        }
        const auto* pixels = image.getPtr<unsigned char>(oru::CPU);  // blue, green, red, 255
        const std::size_t middle = image.getHeight() / 2 * image.getStepBytes(oru::CPU) + image.getWidth() / 2 * 4;
        std::printf("%zu x %zu at %llu ns, middle pixel %d %d %d\n", image.getWidth(), image.getHeight(),
                    static_cast<unsigned long long>(image.timestamp), pixels[middle], pixels[middle + 1],
                    pixels[middle + 2]);
    }
    camera.close();
    return 0;
}
