#pragma once

#include "oru/export.hpp"

namespace oru {

/// The version of the library that runs, as "MAJOR.MINOR.PATCH". Threads: any.
ORU_API const char* version();

}  // namespace oru
