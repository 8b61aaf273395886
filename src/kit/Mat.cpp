#include "oru/Mat.hpp"

#include <cstring>
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
      wrapped(std::exchange(other.wrapped, 0)),
      origin(std::move(other.origin)) {}

Mat& Mat::operator=(Mat&& other) noexcept {
    if (this != &other) {
        free(CPU_AND_GPU);
        timestamp = other.timestamp;
        extent = std::exchange(other.extent, {});
        elementType = other.elementType;
        hostMemory = std::exchange(other.hostMemory, nullptr);
        deviceMemory = std::exchange(other.deviceMemory, nullptr);
        wrapped = std::exchange(other.wrapped, 0);
        origin = std::move(other.origin);
    }
    return *this;
}

Mat Mat::wrap(void* pixels, Resolution size, MAT_TYPE type, MEM memory) {
    Mat image;
    const std::size_t pixelBytes = bytesPerPixel(type);
    if (pixels == nullptr || size.area() == 0 || pixelBytes == 0 || byteSize(size, pixelBytes) == 0 ||
        (memory != CPU && memory != GPU)) {
        return image;
    }
    (memory == CPU ? image.hostMemory : image.deviceMemory) = pixels;
    image.extent = size;
    image.elementType = type;
    image.wrapped = memory;
    return image;
}

ERROR_CODE Mat::alloc(Resolution size, MAT_TYPE type, MEM memory) {
    const std::size_t pixelBytes = bytesPerPixel(type);
    if (size.width == 0 || size.height == 0 || pixelBytes == 0 || (memory & ~CPU_AND_GPU) != 0 || memory == 0) {
        return INVALID_PARAMETER;
    }
    if (!fits(size, type)) {
        if (isWrapped()) {
            return INVALID_PARAMETER;
        }
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
        void* const host = std::exchange(hostMemory, nullptr);
        if ((wrapped & CPU) == 0) {
            origin->gpu().hostFree(host);
        }
    }
    if (has(memory, GPU) && deviceMemory != nullptr) {
        void* const device = std::exchange(deviceMemory, nullptr);
        if ((wrapped & GPU) == 0) {
            origin->gpu().deviceFree(device);
        }
    }
    wrapped &= ~memory;
    if (hostMemory == nullptr && deviceMemory == nullptr) {
        extent = {};
        origin.reset();
    }
}

ERROR_CODE Mat::copyTo(Mat& target) const {
    if (isEmpty() || &target == this) {
        return INVALID_CALL;
    }
    if (const ERROR_CODE allocated = target.alloc(extent, elementType, getMemoryType()); allocated != SUCCESS) {
        return allocated;
    }
    if (hostMemory != nullptr) {
        std::memcpy(target.hostMemory, hostMemory, sizeBytes());
    }
    if (deviceMemory != nullptr &&
        target.origin->gpu().copyDeviceToDevice(target.deviceMemory, deviceMemory, sizeBytes()) != 0) {
        return FAILURE;
    }
    target.timestamp = timestamp;
    return SUCCESS;
}

Mat Mat::clone() const {
    Mat copy;
    return copyTo(copy) == SUCCESS ? std::move(copy) : Mat();
}

ERROR_CODE Mat::upload() {
    if (hostMemory == nullptr) {
        return INVALID_CALL;
    }
    const bool isReady = alloc(extent, elementType, GPU) == SUCCESS;
    return isReady && origin->gpu().copyHostToDevice(deviceMemory, hostMemory, sizeBytes()) == 0 ? SUCCESS : FAILURE;
}

ERROR_CODE Mat::download() {
    if (deviceMemory == nullptr) {
        return INVALID_CALL;
    }
    const bool isReady = alloc(extent, elementType, CPU) == SUCCESS;
    return isReady && origin->gpu().copyDeviceToHost(hostMemory, deviceMemory, sizeBytes()) == 0 ? SUCCESS : FAILURE;
}

std::size_t Mat::getChannels() const {
    return bytesPerPixel(elementType);
}

std::size_t Mat::sizeBytes() const {
    return byteSize(extent, bytesPerPixel(elementType));
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
