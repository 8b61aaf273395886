#include "backends/virtual_bus/inertial/VirtualMcu.hpp"

#include <algorithm>
#include <cmath>
#include <exception>
#include <new>
#include <numbers>

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::virtual_bus {
namespace {

constexpr std::size_t kRingPackets = 4096;  // ten seconds at 400 Hz
constexpr uint64_t kMagnetometerPeriodNs = 20'000'000;
constexpr uint64_t kBarometerPeriodNs = 40'000'000;
constexpr float kOrientationVariance = 1e-9F;

std::array<float, 3> toArray(const Eigen::Vector3d& v) {
    return {static_cast<float>(v.x()), static_cast<float>(v.y()), static_cast<float>(v.z())};
}

std::array<float, 16> diagonal(float value) {
    return {value, 0, 0, 0, 0, value, 0, 0, 0, 0, value, 0, 0, 0, 0, value};
}

/// With room for that many packets, or for none when memory does not suffice.
std::vector<IMUPacket> emptyBatch(std::size_t packets) {
    std::vector<IMUPacket> batch;
    try {
        batch.reserve(packets);
    } catch (const std::bad_alloc&) {
        ORU_LOG(Error, "{} {} inertial samples are lost: out of memory.", kTagKoru, packets);
    }
    return batch;
}

/// Warms up by 9 degrees within minutes of the start.
float temperatureAfter(uint64_t elapsed, float ambient) {
    return ambient + 9.0F * (1.0F - static_cast<float>(std::exp(-static_cast<double>(elapsed) * 1e-9 / 240.0)));
}

}  // namespace

void VirtualMcu::start(const TimeAxis& axis, InertialSource& source, const Options& options) {
    const MutexLock lock(mutex);
    timeAxis = &axis;
    inertialSource = &source;
    chosenOptions = options;
    silenced = false;
    ring.resize(kRingPackets);
    firstPacket = 0;
    packetCount = 0;
    firstOfRun = numberOfNext;
    firstNotHanded = numberOfNext;
    mounting = source.mounting();
    worldToLevel = source.worldToLevel();
    imuCalibration = source.calibration();
}

void VirtualMcu::stop() {
    const MutexLock lock(mutex);
    timeAxis = nullptr;
    inertialSource = nullptr;
}

void VirtualMcu::setSilent(bool silent) {
    const MutexLock lock(mutex);
    advance();
    silenced = silent;
}

void VirtualMcu::reset() {
    const MutexLock lock(mutex);
    advance();
    packetCount = 0;
}

bool VirtualMcu::present() {
    const MutexLock lock(mutex);
    return inertialSource != nullptr && chosenOptions.present;
}

bool VirtualMcu::packetForImage(uint64_t elapsed, IMUPacket& packet) {
    const MutexLock lock(mutex);
    advance();
    if (inertialSource == nullptr || !chosenOptions.present || silenced) {
        return false;
    }
    packet = packetFrom(inertialSource->atImage(elapsed));
    packet.sync_count = 1;
    return true;
}

ImuCalibration VirtualMcu::exportCalib() {
    const MutexLock lock(mutex);
    return imuCalibration;
}

IMUPacket VirtualMcu::getIMUPose(int /*index*/) {
    const MutexLock lock(mutex);
    advance();
    return packetCount == 0 ? IMUPacket{} : packetAt(packetCount - 1);
}

Transform VirtualMcu::getIMUCameraTransform() {
    const MutexLock lock(mutex);
    const Eigen::Matrix3d rotation = mounting.rotation.toRotationMatrix();
    Transform transform;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            transform(static_cast<std::size_t>(row), static_cast<std::size_t>(column)) =
                static_cast<float>(rotation(row, column));
        }
        transform(static_cast<std::size_t>(row), 3) = static_cast<float>(1000.0 * mounting.translation[row]);
    }
    return transform;
}

std::vector<IMUPacket> VirtualMcu::getIMUPacketBatch(unsigned long from, unsigned long to) {
    const MutexLock lock(mutex);
    advance();
    const bool clockWentBack = from > to || firstNotHanded < firstOfRun;
    const std::size_t begin = clockWentBack ? ageOrderOf(firstNotHanded) : firstLaterThan(from);
    const std::size_t end = firstLaterThan(to);
    std::vector<IMUPacket> batch = emptyBatch(end > begin ? end - begin : 0);
    for (std::size_t i = begin; i < end && batch.size() < batch.capacity(); ++i) {
        batch.push_back(packetAt(i));
    }
    firstNotHanded = std::max(firstNotHanded, numberOfNext - packetCount + end);
    return batch;
}

/// Of the packets since the clock was last set back; their stamps rise, so the place is found by halving.
std::size_t VirtualMcu::firstLaterThan(uint64_t time) const {
    std::size_t low = ageOrderOf(firstOfRun);
    std::size_t high = packetCount;
    while (low < high) {
        const std::size_t middle = (low + high) / 2;
        if (packetAt(middle).imu_timestamp <= time) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low;
}

/// Where a packet stands among those kept; 0 for one that is no longer there.
std::size_t VirtualMcu::ageOrderOf(uint64_t number) const {
    const uint64_t oldest = numberOfNext - packetCount;
    return number > oldest ? static_cast<std::size_t>(number - oldest) : 0;
}

unsigned int VirtualMcu::getMCUFirmwareVersion() {
    const MutexLock lock(mutex);
    return chosenOptions.present ? chosenOptions.firmware : 0U;
}

bool VirtualMcu::isReady() {
    const MutexLock lock(mutex);
    advance();
    return inertialSource != nullptr && chosenOptions.present && !silenced && packetCount > 0;
}

void VirtualMcu::advance() {
    if (inertialSource == nullptr || !chosenOptions.present) {
        return;
    }
    const uint64_t now = timeAxis->elapsed();
    InertialSample sample;
    while (nextSample(now, sample)) {
        if (!silenced) {
            append(packetFrom(sample));
        }
    }
}

bool VirtualMcu::nextSample(uint64_t now, InertialSample& sample) {
    try {
        return inertialSource->next(now, sample);
    } catch (const std::exception& problem) {
        ORU_LOG(Error, "{} The inertial samples end: {}.", kTagKoru, problem.what());
        inertialSource = nullptr;
        return false;
    }
}

void VirtualMcu::append(const IMUPacket& packet) {
    if (packetCount > 0 && packetAt(packetCount - 1).imu_timestamp >= packet.imu_timestamp) {
        firstOfRun = numberOfNext;
    }
    if (packetCount == ring.size()) {
        firstPacket = (firstPacket + 1) % ring.size();
        --packetCount;
    }
    ring[(firstPacket + packetCount) % ring.size()] = packet;
    ++packetCount;
    ++numberOfNext;
}

const IMUPacket& VirtualMcu::packetAt(std::size_t ageOrder) const {
    return ring[(firstPacket + ageOrder) % ring.size()];
}

int VirtualMcu::imagesIn(uint64_t elapsed) const {
    if (chosenOptions.frame_period_ns <= 0.0) {
        return 0;
    }
    const auto upTo = [this](double time) ORU_REQUIRES(mutex) {
        return static_cast<int64_t>(std::floor(time / chosenOptions.frame_period_ns));
    };
    const auto end = static_cast<double>(elapsed);
    return static_cast<int>(upTo(end) - upTo(end - static_cast<double>(TrajectoryInertial::kPeriodNs)));
}

IMUPacket VirtualMcu::packetFrom(const InertialSample& sample) const {
    const auto toCamera = [this](const Eigen::Vector3d& v)
                              ORU_REQUIRES(mutex) { return toArray(mounting.rotation.conjugate() * v); };
    IMUPacket packet;
    packet.valid = true;
    packet.imu_timestamp = timeAxis->stamp(sample.elapsed_ns);
    packet.sync_count = imagesIn(sample.elapsed_ns);
    const auto& q = sample.orientation;
    packet.orientation = {static_cast<float>(q.x()), static_cast<float>(q.y()), static_cast<float>(q.z()),
                          static_cast<float>(q.w())};
    packet.vector_1 = toCamera(sample.raw_rate);
    packet.vector_2 = toCamera(sample.raw_force);
    packet.vector_3 = toCamera(sample.rate);
    packet.vector_4 = toCamera(sample.force);
    packet.variances_a = toArray(inertialSource->rateVariance());
    packet.variances_b = toArray(inertialSource->forceVariance());
    packet.orientation_covariance = diagonal(kOrientationVariance);
    packet.imu_temperature = temperatureAfter(sample.elapsed_ns, 31.0F);
    packet.extra_temperatures_present = true;
    packet.extra_temperatures = {temperatureAfter(sample.elapsed_ns, 34.0F),
                                 temperatureAfter(sample.elapsed_ns, 29.0F)};
    addEnvironment(sample, packet);
    return packet;
}

void VirtualMcu::addEnvironment(const InertialSample& sample, IMUPacket& packet) const {
    packet.magnetometer_available = chosenOptions.magnetometer;
    packet.barometer_available = chosenOptions.barometer;
    if (chosenOptions.magnetometer) {
        const uint64_t time = sample.elapsed_ns / kMagnetometerPeriodNs * kMagnetometerPeriodNs;
        packet.magnetometer_timestamp = timeAxis->stamp(time);
        // Microtesla in the level world: 20 along z, which is north here, and 43 down.
        const Eigen::Quaterniond attitude = worldToLevel * sample.orientation;
        const Eigen::Vector3d field = attitude.conjugate() * Eigen::Vector3d(0.0, 43.0, 20.0);
        const Eigen::Vector3d alongCamera = mounting.rotation.conjugate() * field;
        packet.magnetic_vector_1 = toArray(alongCamera);
        packet.magnetic_vector_2 = toArray(alongCamera + Eigen::Vector3d(1.5, -2.0, 0.7));
        const Eigen::Vector3d forward = attitude * mounting.rotation * Eigen::Vector3d::UnitZ();
        const double heading = std::atan2(forward.x(), forward.z());
        packet.heading = static_cast<float>(heading < 0.0 ? heading + 2.0 * std::numbers::pi : heading);
        packet.heading_state = 0;
        packet.heading_accuracy = 0.05F;
    }
    if (chosenOptions.barometer) {
        const uint64_t time = sample.elapsed_ns / kBarometerPeriodNs * kBarometerPeriodNs;
        packet.barometer_timestamp = timeAxis->stamp(time);
        packet.relative_altitude = static_cast<float>(sample.height);
        // Hectopascal, by the slope of the standard atmosphere near the ground.
        packet.pressure = static_cast<float>(1013.25 - 0.12013 * sample.height);
        packet.barometer_temperature = temperatureAfter(sample.elapsed_ns, 30.0F);
    }
}

}  // namespace oru::virtual_bus
