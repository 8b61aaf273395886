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

    /// An image in memory of the application: rows without padding, `size.width` times the bytes of a pixel each. The
    /// container never frees it nor takes another instead: a size or type that differs is refused until free() lets go
    /// of it. The memory must outlive the container's use; for a GPU it belongs to the current context.
    /// An empty container for null, size 0, an unknown type or both memories at once.
    [[nodiscard]] static Mat wrap(void* pixels, Resolution size, MAT_TYPE type, MEM memory = CPU);

    /// Makes the container hold this size and element type in at least the named memory.
    /// A memory that already fits is kept with its content; with another size or type every memory is replaced.
    /// Keeps the process's platform alive for as long as it holds memory.
    /// @retval INVALID_PARAMETER size 0 or unknown type, or wrapped memory that this does not fit
    /// @retval FAILURE out of memory, or no platform is registered
    ERROR_CODE alloc(Resolution size, MAT_TYPE type, MEM memory);
    /// Frees the named memory; with none left the container is empty. The timestamp stays.
    void free(MEM memory);

    /// Whether alloc() of this size and type would keep the memories held.
    [[nodiscard]] bool fits(Resolution size, MAT_TYPE type) const { return size == extent && type == elementType; }
    /// Whether a memory held is the application's own, given to wrap().
    [[nodiscard]] bool isWrapped() const { return wrapped != 0; }

    /// Copies every memory held, and the timestamp, into `target`, whose memory is reused where it fits.
    /// @retval INVALID_CALL nothing is held, or `target` is this container   @retval others as alloc()
    ERROR_CODE copyTo(Mat& target) const;
    /// A copy with memory of its own; empty when there is none.
    [[nodiscard]] Mat clone() const;
    /// Copies the pixels from host to device memory, which is allocated where it is missing.
    /// @retval INVALID_CALL no host memory is held   @retval FAILURE out of memory, or the copy failed
    ERROR_CODE upload();
    /// Copies the pixels from device to host memory, as upload() does the other way.
    ERROR_CODE download();

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
    /// Bytes of a pixel: 1, 2 or 4.
    [[nodiscard]] std::size_t getChannels() const;
    [[nodiscard]] bool isEmpty() const { return getMemoryType() == 0; }
    /// The memories held, as bits; 0 when empty.
    [[nodiscard]] MEM getMemoryType() const;

    /// When the image was taken, in nanoseconds; set by whoever fills the container.
    Timestamp timestamp = 0;

private:
    [[nodiscard]] void* pointer(MEM memory) const;
    [[nodiscard]] std::size_t sizeBytes() const;

    Resolution extent;
    MAT_TYPE elementType = U8_C1;
    void* hostMemory = nullptr;
    void* deviceMemory = nullptr;
    int32_t wrapped = 0;                          // the memories that are the application's, as bits of MEM
    std::shared_ptr<CollaboratorFactory> origin;  // shared: the memory must go back to the platform it came from
};

}  // namespace oru
