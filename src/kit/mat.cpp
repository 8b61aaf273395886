#include "oru/Mat.hpp"

#include <limits>
#include <utility>

#include "collaborators/CollaboratorFactory.hpp"

namespace oru {
namespace {

/// 0 for a type that is not known.
std::size_t bytesPerPixel(MAT_TYPE type) {
    switch (type) {
        case U8_C1:
            return 1;
        case U8_C2:
            return 2;
        case U8_C4:
            return 4;
    }
    return 0;
}

/// 0 when no memory could hold it.
std::size_t byteSize(const Resolution& size, std::size_t pixelBytes) {
    constexpr std::size_t kMost = std::numeric_limits<std::ptrdiff_t>::max();
    if (size.width > kMost / pixelBytes || size.height > kMost / (size.width * pixelBytes)) {
        return 0;
    }
    return size.width * pixelBytes * size.height;
}

bool has(MEM memories, MEM memory) {
    return (memories & memory) != 0;
}

}  // namespace

Mat::Mat() = default;

Mat::~Mat() {
    free(CPU_AND_GPU);
}

Mat::Mat(Mat&& other) noexcept
    : timestamp(other.timestamp),
      size_(std::exchange(other.size_, {})),
      type_(other.type_),
      host_(std::exchange(other.host_, nullptr)),
      device_(std::exchange(other.device_, nullptr)),
      platform_(std::move(other.platform_)) {}

Mat& Mat::operator=(Mat&& other) noexcept {
    if (this != &other) {
        free(CPU_AND_GPU);
        timestamp = other.timestamp;
        size_ = std::exchange(other.size_, {});
        type_ = other.type_;
        host_ = std::exchange(other.host_, nullptr);
        device_ = std::exchange(other.device_, nullptr);
        platform_ = std::move(other.platform_);
    }
    return *this;
}

ERROR_CODE Mat::alloc(Resolution size, MAT_TYPE type, MEM memory) {
    const std::size_t pixelBytes = bytesPerPixel(type);
    if (size.width == 0 || size.height == 0 || pixelBytes == 0 || (memory & ~CPU_AND_GPU) != 0 || memory == 0) {
        return INVALID_PARAMETER;
    }
    if (size != size_ || type != type_) {
        free(CPU_AND_GPU);
    }
    const std::size_t bytes = byteSize(size, pixelBytes);
    const auto platform = platform_ ? platform_ : CollaboratorFactory::processDefault();
    if (bytes == 0 || !platform) {
        return FAILURE;
    }
    void* host = has(memory, CPU) && host_ == nullptr ? platform->gpu().hostAlloc(bytes) : host_;
    void* device = has(memory, GPU) && device_ == nullptr ? platform->gpu().deviceAlloc(bytes) : device_;
    if (host != nullptr || device != nullptr) {
        platform_ = platform;
        size_ = size;
        type_ = type;
        host_ = host;
        device_ = device;
    }
    const bool isComplete = (!has(memory, CPU) || host != nullptr) && (!has(memory, GPU) || device != nullptr);
    return isComplete ? SUCCESS : FAILURE;
}

void Mat::free(MEM memory) {
    if (has(memory, CPU) && host_ != nullptr) {
        platform_->gpu().hostFree(std::exchange(host_, nullptr));
    }
    if (has(memory, GPU) && device_ != nullptr) {
        platform_->gpu().deviceFree(std::exchange(device_, nullptr));
    }
    if (host_ == nullptr && device_ == nullptr) {
        size_ = {};
        platform_.reset();
    }
}

std::size_t Mat::getStepBytes(MEM memory) const {
    const bool isHeld = memory != 0 && (getMemoryType() & memory) == memory;
    return isHeld ? size_.width * bytesPerPixel(type_) : 0;
}

MEM Mat::getMemoryType() const {
    return static_cast<MEM>((host_ != nullptr ? CPU : 0) | (device_ != nullptr ? GPU : 0));
}

void* Mat::pointer(MEM memory) const {
    switch (memory) {
        case CPU:
            return host_;
        case GPU:
            return device_;
        default:
            return nullptr;
    }
}

}  // namespace oru
