#pragma once

namespace oru {

/// Calls `visit` with each field of an IMUPacket: of one, or of several side by side. The order is that of the stream's
/// field mask, so a new field goes to the end; it also gives the order of fields of one kind in a recording.
template <class Visit, class... Packets>
constexpr void visitImuFields(Visit&& visit, Packets&... packets) {
    visit(packets.valid...);
    visit(packets.imu_timestamp...);
    visit(packets.barometer_timestamp...);
    visit(packets.magnetometer_timestamp...);
    visit(packets.sync_count...);
    visit(packets.orientation...);
    visit(packets.translation...);
    visit(packets.vector_1...);
    visit(packets.vector_2...);
    visit(packets.vector_3...);
    visit(packets.vector_4...);
    visit(packets.variances_a...);
    visit(packets.variances_b...);
    visit(packets.orientation_covariance...);
    visit(packets.sample_state...);
    visit(packets.imu_temperature...);
    visit(packets.magnetometer_available...);
    visit(packets.barometer_available...);
    visit(packets.magnetic_vector_1...);
    visit(packets.magnetic_vector_2...);
    visit(packets.heading_state...);
    visit(packets.heading_accuracy...);
    visit(packets.heading...);
    visit(packets.barometer_temperature...);
    visit(packets.pressure...);
    visit(packets.reserved...);
    visit(packets.relative_altitude...);
    visit(packets.extra_temperatures_present...);
    visit(packets.extra_temperatures...);
    visit(packets.metadata_orientation...);
    visit(packets.metadata_translation...);
}

}  // namespace oru
