#pragma once

#include <atomic>
#include <future>
#include <memory>

#include "collaborators/CollaboratorFactory.hpp"
#include "compose/CameraCalibration.hpp"
#include "oru/CameraOne.hpp"
#include "oru/types.hpp"
#include "oru_koruone/CameraOneImpl.hpp"
#include "utils/Mutex.hpp"

namespace oru {

/// One opening of a CameraOne, from before its open() to its end.
struct Opening {
    Opening() : Opening(CollaboratorFactory::processDefault()) {}
    /// With a source of calibrations of its own, where the process's collaborators know how.
    explicit Opening(const std::shared_ptr<CollaboratorFactory>& process);

    CameraCalibration calibration;
    CameraOneImpl camera;
    std::atomic<bool> frame_taken{false};
};

/// The openings of a CameraOne: each has an implementation object of its own, and what the application set for all of
/// them is set on each. An operation that still runs on another thread keeps the opening that it began with.
/// Threads: any.
class CameraSlot {
public:
    CameraSlot();

    /// The present one, for one operation.
    [[nodiscard]] std::shared_ptr<Opening> current() const ORU_EXCLUDES(mutex);

    /// Ends the opening before it, whatever became of that, and opens.
    ERROR_CODE open(const InitParametersOne& parameters, CALIBRATION_CHOICE choice) ORU_EXCLUDES(lifecycle, mutex);
    /// Ends the opening: its device, sender, receiver and recording have ended when this returns. FAILURE: an operation
    /// on another thread has not ended within 10 s; the opening ends with it.
    ERROR_CODE close() ORU_EXCLUDES(lifecycle, mutex);
    /// Of the last open(), as that adjusted them.
    [[nodiscard]] InitParametersOne initParameters() const ORU_EXCLUDES(mutex);

    void setInputStreamKeys(const StreamKeys& keys) ORU_EXCLUDES(lifecycle, mutex);
    void setOutputStreamKeys(const StreamKeys& keys) ORU_EXCLUDES(lifecycle, mutex);

private:
    /// An opening and the news that it is gone.
    struct Occupant {
        std::shared_ptr<Opening> opening;
        std::future<void> gone;
    };

    [[nodiscard]] static Occupant makeOccupant();
    /// Puts a new opening into the place of a used one, and ends that.
    ERROR_CODE vacate() ORU_REQUIRES(lifecycle) ORU_EXCLUDES(mutex);
    ERROR_CODE openCurrent(const InitParametersOne& wanted, CALIBRATION_CHOICE choice) ORU_EXCLUDES(mutex);
    void useKeys() ORU_REQUIRES(lifecycle);

    Mutex lifecycle;  // held through open and close; taken before mutex
    bool used ORU_GUARDED_BY(lifecycle) = false;
    StreamKeys inputKeys ORU_GUARDED_BY(lifecycle);
    StreamKeys outputKeys ORU_GUARDED_BY(lifecycle);
    mutable Mutex mutex;  // held for a copy only
    Occupant occupant ORU_GUARDED_BY(mutex);
    InitParametersOne parameters ORU_GUARDED_BY(mutex);
};

}  // namespace oru
