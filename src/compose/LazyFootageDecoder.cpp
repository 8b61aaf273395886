#include "compose/LazyFootageDecoder.hpp"

#include <utility>

#include "compose/modules/modules.hpp"

namespace oru {

using virtual_bus::FootageDecoder;
using virtual_bus::FootageReader;
using virtual_bus::ImageScaling;

FootageDecoder* LazyFootageDecoder::needed(std::string& error) {
    const MutexLock lock(making);
    if (real == nullptr) {
        if (const FootageModule* module = footageModule(); module != nullptr) {
            real = module->makeDecoder();
        } else {
            error = "the footage module is missing";
        }
    }
    return real.get();
}

bool LazyFootageDecoder::probe(const std::string& path, virtual_bus::ImageFileFacts& facts, std::string& error) {
    FootageDecoder* decoder = needed(error);
    return decoder != nullptr && decoder->probe(path, facts, error);
}

std::unique_ptr<FootageReader> LazyFootageDecoder::openImages(std::vector<virtual_bus::ListedImage> images,
                                                              const ImageScaling& scaling, std::string& error) {
    FootageDecoder* decoder = needed(error);
    return decoder != nullptr ? decoder->openImages(std::move(images), scaling, error) : nullptr;
}

std::unique_ptr<FootageReader> LazyFootageDecoder::openVideo(const std::string& path, double fps,
                                                             const ImageScaling& scaling, std::string& error) {
    FootageDecoder* decoder = needed(error);
    return decoder != nullptr ? decoder->openVideo(path, fps, scaling, error) : nullptr;
}

}  // namespace oru
