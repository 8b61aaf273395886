#include "backends/virtual_bus/inertial/VirtualMcu.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "backends/virtual_bus/inertial/inertial_source.hpp"
#include "doubles/ScriptedClock.hpp"

namespace oru::virtual_bus {
namespace {

constexpr uint64_t kSecond = 1'000'000'000;

struct McuRig {
    explicit McuRig(Motion motion = Motion::GENTLE, bool environment = false)
        : source(Trajectory(motion), 7), axis(clock) {
        VirtualMcu::Options options;
        options.magnetometer = environment;
        options.barometer = environment;
        options.frame_period_ns = 1e9 / 60.0;
        mcu.start(axis, source, options);
    }

    doubles::ScriptedClock clock;
    TrajectoryInertial source;
    TimeAxis axis;
    VirtualMcu mcu;
};

double norm(const std::array<float, 3>& v) {
    return std::hypot(v[0], v[1], v[2]);
}

TEST(VirtualMcuRing, StaysBoundedAndKeepsTheNewestWithoutGap) {
    McuRig rig;
    rig.clock.now += 60 * kSecond;

    const auto batch = rig.mcu.getIMUPacketBatch(0, ~0UL);

    ASSERT_EQ(batch.size(), 4096U);
    EXPECT_EQ(batch.back().imu_timestamp, rig.axis.stamp(60 * kSecond));
    for (std::size_t i = 1; i < batch.size(); ++i) {
        ASSERT_EQ(batch[i].imu_timestamp - batch[i - 1].imu_timestamp, 2'500'000U);
    }
}

TEST(VirtualMcuRing, LosesNoSampleWhenTheClockIsSetBack) {
    for (const uint64_t step : {kSecond / 2, kSecond / 50, 30 * kSecond}) {
        SCOPED_TRACE(step);
        McuRig rig;
        Timestamp last = 0;
        std::size_t total = 0;
        const auto grabAfter = [&](uint64_t pause) {
            rig.clock.now += pause;
            const Timestamp image = rig.axis.stamp(rig.axis.elapsed());
            total += rig.mcu.getIMUPacketBatch(last, image).size();
            last = image;
        };
        grabAfter(kSecond);
        ASSERT_EQ(total, 401U);
        rig.clock.now += kSecond / 100;
        (void)rig.mcu.getIMUPose(0);  // four of the interval come before the step

        rig.axis.step(-static_cast<int64_t>(step));
        grabAfter(kSecond / 50);
        EXPECT_EQ(total, 413U) << "of the interval of the step";
        grabAfter(kSecond);
        EXPECT_EQ(total, 813U) << "and each once";
    }
}

TEST(VirtualMcuRing, IsSilentWhenToldAndReadyAgainAfterwards) {
    McuRig rig;
    rig.clock.now += kSecond;
    ASSERT_TRUE(rig.mcu.isReady());

    rig.mcu.setSilent(true);
    rig.clock.now += kSecond;
    IMUPacket packet;
    EXPECT_FALSE(rig.mcu.isReady());
    EXPECT_FALSE(rig.mcu.packetForImage(rig.axis.elapsed(), packet));
    EXPECT_EQ(rig.mcu.getIMUPacketBatch(rig.axis.stamp(kSecond), ~0UL).size(), 0U);

    rig.mcu.setSilent(false);
    rig.clock.now += kSecond;
    EXPECT_TRUE(rig.mcu.isReady());
    EXPECT_EQ(rig.mcu.getIMUPacketBatch(rig.axis.stamp(2 * kSecond), ~0UL).size(), 400U);
}

TEST(VirtualMcuPacket, AtRestFeelsGravityWithinItsNoise) {
    McuRig rig(Motion::REST);
    rig.clock.now += 5 * kSecond;

    const auto batch = rig.mcu.getIMUPacketBatch(0, ~0UL);

    double force = 0.0;
    double rate = 0.0;
    for (const IMUPacket& packet : batch) {
        ASSERT_NEAR(norm(packet.vector_4), kGravity, 0.25);
        force += norm(packet.vector_4) / static_cast<double>(batch.size());
        rate += norm(packet.vector_3) / static_cast<double>(batch.size());
        ASSERT_GT(packet.variances_b[0], 0.0F);
    }
    EXPECT_NEAR(force, kGravity, 0.03);
    EXPECT_LT(rate, 0.25) << "degrees per second";
    EXPECT_LT(batch.back().vector_4[1], -9.0F) << "y points down, the support pushes up";
}

TEST(VirtualMcuPacket, CalibrationTurnsRawVectorsIntoCalibratedOnes) {
    McuRig rig;
    rig.clock.now += kSecond;
    const ImuCalibration calibration = rig.mcu.exportCalib();
    InertialSample sample;
    TrajectoryInertial again(Trajectory(Motion::GENTLE), 7);
    ASSERT_TRUE(again.next(0, sample));

    for (int axis = 0; axis < 3; ++axis) {
        const auto i = static_cast<std::size_t>(axis);
        EXPECT_NE(calibration.values[i], 0.0F);
        EXPECT_NEAR(sample.raw_rate[axis] - calibration.values[i], sample.rate[axis], 1e-5);
        EXPECT_NEAR(sample.raw_force[axis] - calibration.values[18 + i], sample.force[axis], 1e-5);
    }
}

TEST(VirtualMcuPacket, CarriesTheExtraSensorsOnlyWhenTheyAreThere) {
    McuRig without;
    McuRig with(Motion::REST, true);
    without.clock.now += kSecond;
    with.clock.now += kSecond;

    EXPECT_FALSE(without.mcu.getIMUPose(0).magnetometer_available);
    EXPECT_FALSE(without.mcu.getIMUPose(0).barometer_available);
    const IMUPacket packet = with.mcu.getIMUPose(0);
    ASSERT_TRUE(packet.magnetometer_available);
    ASSERT_TRUE(packet.barometer_available);
    EXPECT_NEAR(norm(packet.magnetic_vector_1), std::hypot(43.0, 20.0), 1e-3);
    EXPECT_NEAR(packet.pressure, 1013.25F, 1.0F);
    EXPECT_LE(packet.magnetometer_timestamp, packet.imu_timestamp);
    EXPECT_GT(packet.imu_temperature, 20.0F);
}

TEST(VirtualMcuPacket, CountsTheImagesOfItsInterval) {
    McuRig rig;
    rig.clock.now += kSecond;

    int images = 0;
    for (const IMUPacket& packet : rig.mcu.getIMUPacketBatch(rig.axis.stamp(0), ~0UL)) {
        images += packet.sync_count;
    }

    EXPECT_EQ(images, 60);
}

}  // namespace
}  // namespace oru::virtual_bus
