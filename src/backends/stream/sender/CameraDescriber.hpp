#pragma once

#include <cstdint>
#include <string>

#include "backends/stream/wire/records.hpp"
#include "collaborators/UDPOutput.hpp"
#include "oru_input/grabber/LiveCameraGrabber.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// What a sender says of its camera: from its configuration, from the live camera when there is one, else from the
/// frames and samples that it forwards. Threads: any, but for refresh, which belongs to the encoding thread.
class CameraDescriber {
public:
    CameraDescriber(const UDPOutConfig& configuration, uint64_t session, std::string calibration);

    void setGrabber(LiveCameraGrabber* grabber);
    void setImuCalibration(const ImuCalibration& calibration);
    /// A frame came by: without a live camera its metadata tell of inertial data and pose.
    void noticeMetadata(const rlxrw::rlxSampleMetadata& metadata);
    void noticeSample();
    /// Enough is known for a description that will not change with the next frame.
    [[nodiscard]] bool complete() const;
    /// Asks the live camera for its controls, at most once a second.
    void refresh(uint64_t nowNs);
    /// A control was written: the next refresh asks at once.
    void expire();
    /// Hands the present description to `use`, under the lock.
    template <class Use>
    void withDescription(Use&& use) const {
        const MutexLock lock(mutex);
        use(record);
    }

private:
    const bool withImu;
    mutable Mutex mutex;
    DescriptionRecord record ORU_GUARDED_BY(mutex);
    LiveCameraGrabber* liveGrabber ORU_GUARDED_BY(mutex) = nullptr;
    bool hasDevice ORU_GUARDED_BY(mutex) = false;
    bool liveImu ORU_GUARDED_BY(mutex) = false;
    bool framesSeen ORU_GUARDED_BY(mutex) = false;
    uint64_t refreshedNs ORU_GUARDED_BY(mutex) = 0;
};

}  // namespace oru::stream
