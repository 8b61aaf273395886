#pragma once

#include <cstddef>

namespace oru::bench {

/// Reads all of `in` and writes all of `out` past the caches, with nothing between: what a view of these sizes costs
/// at the least on this machine. `out` is aligned to 64 bytes. One thread.
void touchMemory(const unsigned char* in, std::size_t inBytes, unsigned char* out, std::size_t outBytes);

}  // namespace oru::bench
