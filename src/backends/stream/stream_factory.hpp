#pragma once

#include <memory>

#include "collaborators/CalibrationSource.hpp"
#include "collaborators/UDPInput.hpp"
#include "collaborators/UDPOutput.hpp"
#include "utils/Clock.hpp"

namespace oru {

/// The network stream's two ends; docs/stream-protocol.md describes what travels between them.
/// Clock and calibration source outlive what is made here.

/// A receiver. It offers the calibration that the sender carries to `calibration`, inside open(), and gives `recorder`
/// out as the recorder of its input. open() answers 0 connected; -1 no usable address; -2 host unknown; -3 nobody
/// answered within 3 s; -4 the sender refuses this key; -5 somebody answered but described no camera; -6 a key
/// is unusable.
std::unique_ptr<UDPInput> makeStreamReceiver(Clock& clock, CalibrationSource& calibration,
                                             std::unique_ptr<rlxrw::RLXVideo> recorder, bool verbose);

/// A sender. It carries the calibration text that `calibration` knows for its camera when it opens. open() answers
/// 0 running; -1 an impossible configuration; -2 no socket; -3 the port is taken; -6 a key is
/// unusable; 1 no encoder for the codec; 2 no memory.
std::unique_ptr<UDPOutput> makeStreamSender(Clock& clock, CalibrationSource& calibration, bool verbose);

/// Leads the transport library's own messages to the log, at most a few a second. Once, before the first stream.
void routeStreamLibraryLog();

}  // namespace oru
