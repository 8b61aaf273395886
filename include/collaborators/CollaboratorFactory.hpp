#pragma once

#include <memory>

#include "collaborators/CalibrationSource.hpp"
#include "collaborators/DeviceDirectory.hpp"
#include "collaborators/GpuRuntime.hpp"
#include "collaborators/MonoRectifier.hpp"
#include "collaborators/PlaybackRecorder.hpp"
#include "collaborators/RLXVideo.hpp"
#include "collaborators/UDPInput.hpp"
#include "collaborators/UDPOutput.hpp"
#include "oru_input/grabber/LiveCameraGrabber.hpp"
#include "utils/Clock.hpp"

namespace oru {

/// Makes a camera's collaborators. A make operation may answer null when this build lacks the collaborator: the camera
/// then answers NOT_SUPPORTED where it needs it. Grabber and rectifier are never null. The references live as long as
/// the factory. Threads: any.
class CollaboratorFactory {
public:
    enum class RlxRole { reader, recorder };

    virtual ~CollaboratorFactory() = default;

    virtual std::unique_ptr<LiveCameraGrabber> makeGrabber(INPUT_TYPE type) = 0;
    virtual std::unique_ptr<rlxrw::RLXVideo> makeRlxVideo(RlxRole role) = 0;
    virtual std::unique_ptr<UDPInput> makeStreamInput(bool verbose) = 0;
    virtual std::unique_ptr<UDPOutput> makeStreamOutput(STREAMING_MODE mode, bool verbose) = 0;
    virtual std::unique_ptr<MonoRectifier> makeRectifier() = 0;
    virtual std::unique_ptr<PlaybackRecorder> makePlaybackRecorder() = 0;
    virtual DeviceDirectory& devices() = 0;
    virtual CalibrationSource& calibration() = 0;
    virtual GpuRuntime& gpu() = 0;
    virtual Clock& clock() = 0;

    /// The same collaborators, whose readers, receivers, recorders and senders work with another source of
    /// calibrations, which outlives it; null when this factory has none such.
    virtual std::shared_ptr<CollaboratorFactory> withCalibration(CalibrationSource& /*calibration*/) { return nullptr; }

    /// What setProcessDefault gave, else what registerBuiltIn's function makes (once), else null.
    static std::shared_ptr<CollaboratorFactory> processDefault();
    /// Returns what had been set before, null when nothing had; null goes back to the built-in one.
    static std::shared_ptr<CollaboratorFactory> setProcessDefault(std::shared_ptr<CollaboratorFactory> factory);
    /// How compose offers the factory of the real collaborators; nothing below compose names it.
    static void registerBuiltIn(std::shared_ptr<CollaboratorFactory> (*make)());
};

}  // namespace oru
