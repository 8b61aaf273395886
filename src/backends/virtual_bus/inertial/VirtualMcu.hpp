#pragma once

#include <memory>
#include <vector>

#include "backends/virtual_bus/inertial/TimeAxis.hpp"
#include "backends/virtual_bus/inertial/inertial_source.hpp"
#include "oru_input/mcu/KORUmcu.hpp"
#include "utils/Mutex.hpp"

namespace oru::virtual_bus {

/// The micro-controller: turns inertial samples into packets and keeps the last ten seconds of them. It has no thread;
/// whoever asks (the capture thread does at every frame) brings it up to the present.
///
/// What a packet holds: vector_1 raw angular rate, vector_2 raw specific force, vector_3 angular rate, vector_4
/// specific force, both with the factory calibration applied; degrees per second and m/s^2 along the camera's axes
/// (x right, y down, z forward). variances_a belongs to the rate, variances_b to the force. At rest and level the
/// force is (0, -9.80665, 0). orientation turns IMU axes into the IMU's world (x right, y down, z forward, gravity
/// along +y). translation is zero: the IMU measures no position.
class VirtualMcu final : public KORUmcu {
public:
    struct Options {
        bool present = true;
        bool magnetometer = false;
        bool barometer = false;
        unsigned int firmware = 0;
        double frame_period_ns = 0.0;  ///< for the count of images in sync_count
    };

    /// Begins to deliver on a new time axis; both stay borrowed until stop().
    void start(const TimeAxis& axis, InertialSource& source, const Options& options);
    /// Delivers no more; what was collected stays.
    void stop();
    /// While silent, samples are lost, as from a controller that hangs.
    void setSilent(bool silent);
    /// Forgets the bias walk and what was collected; the next sample is the next on the axis.
    void reset();

    /// The packet of an image taken at that moment. False without inertial sensors or while silent.
    bool packetForImage(uint64_t elapsed, IMUPacket& packet);
    [[nodiscard]] bool present();

    ImuCalibration exportCalib() override;
    IMUPacket getIMUPose(int index) override;
    Transform getIMUCameraTransform() override;
    std::vector<IMUPacket> getIMUPacketBatch(unsigned long from, unsigned long to) override;
    unsigned int getMCUFirmwareVersion() override;
    bool isReady() override;

private:
    void advance() ORU_REQUIRES(mutex);
    [[nodiscard]] bool nextSample(uint64_t now, InertialSample& sample) ORU_REQUIRES(mutex);
    void append(const IMUPacket& packet) ORU_REQUIRES(mutex);
    [[nodiscard]] IMUPacket packetFrom(const InertialSample& sample) const ORU_REQUIRES(mutex);
    void addEnvironment(const InertialSample& sample, IMUPacket& packet) const ORU_REQUIRES(mutex);
    [[nodiscard]] int imagesIn(uint64_t elapsed) const ORU_REQUIRES(mutex);
    [[nodiscard]] const IMUPacket& packetAt(std::size_t ageOrder) const ORU_REQUIRES(mutex);
    [[nodiscard]] std::size_t ageOrderOf(uint64_t number) const ORU_REQUIRES(mutex);
    [[nodiscard]] std::size_t firstLaterThan(uint64_t time) const ORU_REQUIRES(mutex);

    Mutex mutex;
    const TimeAxis* timeAxis ORU_GUARDED_BY(mutex) = nullptr;
    InertialSource* inertialSource ORU_GUARDED_BY(mutex) = nullptr;
    Options chosenOptions ORU_GUARDED_BY(mutex);
    bool silenced ORU_GUARDED_BY(mutex) = false;
    std::vector<IMUPacket> ring ORU_GUARDED_BY(mutex);
    std::size_t firstPacket ORU_GUARDED_BY(mutex) = 0;
    std::size_t packetCount ORU_GUARDED_BY(mutex) = 0;
    uint64_t numberOfNext ORU_GUARDED_BY(mutex) = 0;    // packets are numbered as they come
    uint64_t firstOfRun ORU_GUARDED_BY(mutex) = 0;      // stamps rise from here on: the clock was set back before it
    uint64_t firstNotHanded ORU_GUARDED_BY(mutex) = 0;  // by getIMUPacketBatch
    Mounting mounting ORU_GUARDED_BY(mutex);
    Eigen::Quaterniond worldToLevel ORU_GUARDED_BY(mutex) = Eigen::Quaterniond::Identity();
    ImuCalibration imuCalibration ORU_GUARDED_BY(mutex);
};

}  // namespace oru::virtual_bus
