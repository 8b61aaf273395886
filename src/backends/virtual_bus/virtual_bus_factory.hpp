#pragma once

#include <memory>
#include <optional>
#include <string>

#include "collaborators/CalibrationSource.hpp"
#include "collaborators/DeviceDirectory.hpp"
#include "oru_input/grabber/LiveCameraGrabber.hpp"
#include "utils/Clock.hpp"

namespace oru::virtual_bus {

/// The cameras that are attached, shared by every grabber and the directory. Opaque; threads: any.
class VirtualBus;

/// Turns footage files into images; see footage/FootageDecoder.hpp.
class FootageDecoder;

/// Clock, footage decoder and calibration source (which may be null) outlive the bus. Each camera that is listed or
/// opened has its factory calibration offered to that source.
/// @param setting what KORU_VIRTUAL_BUS would say; without one the environment is asked whenever the bus is used:
///        empty or unset: the default cameras; "off": none; otherwise the configuration file to read.
[[nodiscard]] std::shared_ptr<VirtualBus> makeVirtualBus(Clock& clock, CalibrationSource* calibration,
                                                         FootageDecoder& footage,
                                                         std::optional<std::string> setting = std::nullopt);

/// A grabber for any one camera of the bus. It keeps the bus alive.
[[nodiscard]] std::unique_ptr<LiveCameraGrabber> makeVirtualGrabber(std::shared_ptr<VirtualBus> bus, INPUT_TYPE type);

/// Lists the cameras of the bus and resets their micro-controllers. It keeps the bus alive.
[[nodiscard]] std::unique_ptr<DeviceDirectory> makeVirtualDirectory(std::shared_ptr<VirtualBus> bus);

}  // namespace oru::virtual_bus
