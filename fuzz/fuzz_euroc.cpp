#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "backends/virtual_bus/footage/euroc.hpp"

namespace {

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

void checkSamples(std::string_view text) {
    while (!text.empty()) {
        const auto end = text.find('\n');
        oru::virtual_bus::EurocSample sample;
        if (oru::virtual_bus::parseEurocSample(text.substr(0, end), sample)) {
            require(std::isfinite(sample.rate[0]) && std::isfinite(sample.force[2]));
        }
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string error;
    std::vector<oru::virtual_bus::EurocImage> images;
    if (oru::virtual_bus::parseEurocImages(text, images, error)) {
        for (std::size_t i = 0; i < images.size(); ++i) {
            require(images[i].file.find('/') == std::string::npos);
            require(i == 0 || images[i].time_ns > images[i - 1].time_ns);
        }
    } else {
        require(!error.empty());
    }
    oru::virtual_bus::EurocCamera camera;
    error.clear();
    if (oru::virtual_bus::parseEurocCamera(text, camera, error)) {
        require(camera.width >= 16 && camera.height >= 16 && camera.lens.fx > 0.0);
    } else {
        require(!error.empty());
    }
    checkSamples(text);
    return 0;
}
