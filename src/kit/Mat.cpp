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
      extent(std::exchange(other.extent, {})),
      elementType(other.elementType),
      hostMemory(std::exchange(other.hostMemory, nullptr)),
      deviceMemory(std::exchange(other.deviceMemory, nullptr)),
      origin(std::move(other.origin)) {}

Mat& Mat::operator=(Mat&& other) noexcept {
    if (this != &other) {
        free(CPU_AND_GPU);
        timestamp = other.timestamp;
        extent = std::exchange(other.extent, {});
        elementType = other.elementType;
        hostMemory = std::exchange(other.hostMemory, nullptr);
        deviceMemory = std::exchange(other.deviceMemory, nullptr);
        origin = std::move(other.origin);
    }
    return *this;
}

ERROR_CODE Mat::alloc(Resolution size, MAT_TYPE type, MEM memory) {
    const std::size_t pixelBytes = bytesPerPixel(type);
    if (size.width == 0 || size.height == 0 || pixelBytes == 0 || (memory & ~CPU_AND_GPU) != 0 || memory == 0) {
        return INVALID_PARAMETER;
    }
    if (size != extent || type != elementType) {
        free(CPU_AND_GPU);
    }
    const std::size_t bytes = byteSize(size, pixelBytes);
    const auto platform = origin ? origin : CollaboratorFactory::processDefault();
    if (bytes == 0 || !platform) {
        return FAILURE;
    }
    void* host = has(memory, CPU) && hostMemory == nullptr ? platform->gpu().hostAlloc(bytes) : hostMemory;
    void* device = has(memory, GPU) && deviceMemory == nullptr ? platform->gpu().deviceAlloc(bytes) : deviceMemory;
    if (host != nullptr || device != nullptr) {
        origin = platform;
        extent = size;
        elementType = type;
        hostMemory = host;
        deviceMemory = device;
    }
    const bool isComplete = (!has(memory, CPU) || host != nullptr) && (!has(memory, GPU) || device != nullptr);
    return isComplete ? SUCCESS : FAILURE;
}

void Mat::free(MEM memory) {
    if (has(memory, CPU) && hostMemory != nullptr) {
        origin->gpu().hostFree(std::exchange(hostMemory, nullptr));
    }
    if (has(memory, GPU) && deviceMemory != nullptr) {
        origin->gpu().deviceFree(std::exchange(deviceMemory, nullptr));
    }
    if (hostMemory == nullptr && deviceMemory == nullptr) {
        extent = {};
        origin.reset();
    }
}

std::size_t Mat::getStepBytes(MEM memory) const {
    const bool isHeld = memory != 0 && (getMemoryType() & memory) == memory;
    return isHeld ? extent.width * bytesPerPixel(elementType) : 0;
}

MEM Mat::getMemoryType() const {
    return static_cast<MEM>((hostMemory != nullptr ? CPU : 0) | (deviceMemory != nullptr ? GPU : 0));
}

void* Mat::pointer(MEM memory) const {
    switch (memory) {
        case CPU:
            return hostMemory;
        case GPU:
            return deviceMemory;
        default:
            return nullptr;
    }
}

}  // namespace oru
