#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backends/virtual_bus/footage/FootageDecoder.hpp"
#include "utils/Mutex.hpp"

namespace oru {

/// Footage by the footage module, which is loaded when a virtual camera first shows a file. Threads: any.
class LazyFootageDecoder final : public virtual_bus::FootageDecoder {
public:
    bool probe(const std::string& path, virtual_bus::ImageFileFacts& facts, std::string& error) override;
    std::unique_ptr<virtual_bus::FootageReader> openImages(std::vector<virtual_bus::ListedImage> images,
                                                           const virtual_bus::ImageScaling& scaling,
                                                           std::string& error) override;
    std::unique_ptr<virtual_bus::FootageReader> openVideo(const std::string& path, double fps,
                                                          const virtual_bus::ImageScaling& scaling,
                                                          std::string& error) override;

private:
    /// Null with the reason when the module is missing.
    FootageDecoder* needed(std::string& error) ORU_EXCLUDES(making);

    Mutex making;
    std::unique_ptr<FootageDecoder> real ORU_GUARDED_BY(making);
};

}  // namespace oru
