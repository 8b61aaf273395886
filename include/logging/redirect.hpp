#pragma once

#include "logging/Logger.hpp"

namespace oru {

/// Leads what logger MAIN of the registry says to `sink`, or back to standard error when that is empty. Messages before
/// the call go the former way, and when it returns the former sink is not called any more. Threads: any but the sink's.
void redirectLog(LogSink sink);

}  // namespace oru
