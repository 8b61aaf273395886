#pragma once

#include "oru/export.hpp"

namespace oru {

/// Returns when every message that the library has logged so far is written: what is printed next comes after them.
/// Threads: any.
ORU_API void flushLog();

}  // namespace oru
