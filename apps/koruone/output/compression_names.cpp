#include "koruone/output/compression_names.hpp"

#include <fmt/core.h>

namespace koruone {

const Choices<oru::RLX_COMPRESSION_MODE> kCompressions{
    {"raw", oru::RLX_RAW},           {"h264", oru::RLX_H264}, {"h265", oru::RLX_H265},
    {"lossless", oru::RLX_LOSSLESS}, {"ffv1", oru::RLX_FFV1},
};

std::string compressionName(oru::RLX_COMPRESSION_MODE mode) {
    for (const auto& [name, value] : kCompressions) {
        if (value == mode) {
            return name;
        }
    }
    return fmt::format("mode {}", static_cast<int>(mode));
}

}  // namespace koruone
