#pragma once

#include <memory>

#include "backends/calibration_fetch/download.hpp"
#include "collaborators/CalibrationSource.hpp"

namespace oru {

/// Gets a camera's calibration file from whoever has it, in this order:
///  1. the text that was offered for the serial number: the attached camera's factory calibration, and nobody else's;
///  2. the address in the environment variable KORU_CALIB_URL (http, https or file; nothing is fetched unless it
///     is set): "{serial}" in it stands for the serial number; an address that ends in ".conf" or has a query is
///     used as it is; to any other one "/" (where missing) and "SN<serial>.conf" are added.
/// A text is taken only when it is a whole calibration of that camera (see calibrationDefect); it gets its final
/// name by a rename, so that no reader ever sees half a file, and a failure leaves nothing behind.
/// Bounds: 5 s for a download, 1 MiB for a text, 64 cameras remembered (the oldest offer goes first).
/// Threads: any; `download` is called by whichever thread asks.
std::unique_ptr<CalibrationSource> makeCalibrationFetch(DownloadText download);

}  // namespace oru
