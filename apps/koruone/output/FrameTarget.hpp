#pragma once

#include <string>

#include "oru/Mat.hpp"
#include "oru/RecordedFile.hpp"

namespace koruone {

/// Where converted frames go. After a false result error() says why and nothing more is written.
class FrameTarget {
public:
    virtual ~FrameTarget() = default;
    [[nodiscard]] virtual bool open(const std::string& path, const oru::RecordedFile& source,
                                    oru::RLX_COMPRESSION_MODE mode) = 0;
    /// `image` is packed YUYV; `source` read it last and tells its samples.
    [[nodiscard]] virtual bool write(const oru::Mat& image, oru::RecordedFile& source) = 0;
    [[nodiscard]] virtual bool finish() = 0;
    [[nodiscard]] virtual const std::string& error() const = 0;
};

}  // namespace koruone
