#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "oru_input/mcu/IMUPacket.hpp"
#include "utils/bytes.hpp"

namespace oru::stream {

/// The most bytes one sample takes: the field mask and every field.
constexpr std::size_t kMaxImuBytes = 4 + sizeof(IMUPacket);

/// The sample against which the first one of a record is coded: every byte zero.
inline IMUPacket emptyImuPacket() {
    return IMUPacket{};
}

/// Calls `visit` with each field of two samples side by side, in the order of the wire's field mask.
template <class Packet, class Other, class Visit>
void forEachImuField(Packet& a, Other& b, Visit&& visit) {
    visit(a.valid, b.valid);
    visit(a.imu_timestamp, b.imu_timestamp);
    visit(a.barometer_timestamp, b.barometer_timestamp);
    visit(a.magnetometer_timestamp, b.magnetometer_timestamp);
    visit(a.sync_count, b.sync_count);
    visit(a.orientation, b.orientation);
    visit(a.translation, b.translation);
    visit(a.vector_1, b.vector_1);
    visit(a.vector_2, b.vector_2);
    visit(a.vector_3, b.vector_3);
    visit(a.vector_4, b.vector_4);
    visit(a.variances_a, b.variances_a);
    visit(a.variances_b, b.variances_b);
    visit(a.orientation_covariance, b.orientation_covariance);
    visit(a.sample_state, b.sample_state);
    visit(a.imu_temperature, b.imu_temperature);
    visit(a.magnetometer_available, b.magnetometer_available);
    visit(a.barometer_available, b.barometer_available);
    visit(a.magnetic_vector_1, b.magnetic_vector_1);
    visit(a.magnetic_vector_2, b.magnetic_vector_2);
    visit(a.heading_state, b.heading_state);
    visit(a.heading_accuracy, b.heading_accuracy);
    visit(a.heading, b.heading);
    visit(a.barometer_temperature, b.barometer_temperature);
    visit(a.pressure, b.pressure);
    visit(a.reserved, b.reserved);
    visit(a.relative_altitude, b.relative_altitude);
    visit(a.extra_temperatures_present, b.extra_temperatures_present);
    visit(a.extra_temperatures, b.extra_temperatures);
    visit(a.metadata_orientation, b.metadata_orientation);
    visit(a.metadata_translation, b.metadata_translation);
}

/// Writes a mask of the fields whose bytes differ from `previous`, then those fields.
inline void writeImuPacket(LittleEndianWriter& writer, const IMUPacket& packet, const IMUPacket& previous) {
    const std::size_t maskAt = writer.size();
    writer.put(uint32_t{0});
    uint32_t mask = 0;
    uint32_t bit = 1;
    forEachImuField(packet, previous, [&](const auto& field, const auto& before) {
        if (std::memcmp(&field, &before, sizeof(field)) != 0) {
            mask |= bit;
            writer.put(field);
        }
        bit <<= 1;
    });
    writer.patch(maskAt, mask);
}

/// Reads one sample over `packet`, which holds the one before it.
[[nodiscard]] inline bool readImuPacket(LittleEndianReader& reader, IMUPacket& packet) {
    uint32_t mask = 0;
    reader.get(mask);
    forEachImuField(packet, packet, [&](auto& field, const auto&) {
        if ((mask & 1) != 0) {
            reader.get(field);
        }
        mask >>= 1;
    });
    return reader.ok();
}

}  // namespace oru::stream
