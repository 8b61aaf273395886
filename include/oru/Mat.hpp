#pragma once

#include <cstddef>
#include <memory>

#include "oru/error_code.hpp"
#include "oru/export.hpp"
#include "oru/image.hpp"

namespace oru {

class CollaboratorFactory;

/// The kit's image container: rows without padding, in host memory, device memory or both.
/// The two memories are independent copies; whoever writes one of them says which.
/// Movable, not copyable. Threads: one at a time.
class ORU_API Mat {
public:
    Mat();
    ~Mat();
    Mat(Mat&& other) noexcept;
    Mat& operator=(Mat&& other) noexcept;
    Mat(const Mat&) = delete;
    Mat& operator=(const Mat&) = delete;

    /// Makes the container hold this size and element type in at least the named memory.
    /// A memory that already fits is kept with its content; with another size or type every memory is replaced.
    /// Keeps the process's platform alive for as long as it holds memory.
    /// @retval INVALID_PARAMETER size 0 or unknown type   @retval FAILURE out of memory, or no platform is registered
    ERROR_CODE alloc(Resolution size, MAT_TYPE type, MEM memory);
    /// Frees the named memory; with none left the container is empty. The timestamp stays.
    void free(MEM memory);

    /// First pixel in one memory (CPU or GPU), or null when it is not held. Valid until the next alloc or free.
    template <class T>
    [[nodiscard]] T* getPtr(MEM memory) const {
        return static_cast<T*>(pointer(memory));
    }
    /// Bytes from one row to the next, 0 when that memory is not held.
    [[nodiscard]] std::size_t getStepBytes(MEM memory) const;
    [[nodiscard]] std::size_t getWidth() const { return extent.width; }
    [[nodiscard]] std::size_t getHeight() const { return extent.height; }
    [[nodiscard]] MAT_TYPE getDataType() const { return elementType; }
    /// The memories held, as bits; 0 when empty.
    [[nodiscard]] MEM getMemoryType() const;

    /// When the image was taken, in nanoseconds; set by whoever fills the container.
    Timestamp timestamp = 0;

private:
    [[nodiscard]] void* pointer(MEM memory) const;

    Resolution extent;
    MAT_TYPE elementType = U8_C1;
    void* hostMemory = nullptr;
    void* deviceMemory = nullptr;
    std::shared_ptr<CollaboratorFactory> origin;  // shared: the memory must go back to the platform it came from
};

}  // namespace oru
