#pragma once

#include <cstddef>
#include <cstdint>

namespace oru::rlx {

/// CRC-32C (Castagnoli, reflected polynomial 0x82F63B78, initial value and final xor all ones; RFC 3720 appendix B.4).
/// Pass the result of one block as `crc` of the next to continue. Uses the processor's instruction where there is one.
[[nodiscard]] uint32_t crc32c(const void* data, std::size_t size, uint32_t crc = 0);

/// The same by table, on any processor.
[[nodiscard]] uint32_t crc32cByTable(const void* data, std::size_t size, uint32_t crc = 0);

}  // namespace oru::rlx
