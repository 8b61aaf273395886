#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string_view>
#include <vector>

#include "oru_input/mcu/IMUPacket.hpp"

namespace oru::test {

/// A sample in which every field differs from its default and no two floats are equal, so that one left out or in the
/// wrong place shows.
inline IMUPacket distinctSample() {
    IMUPacket sample;
    float last = 0.0F;
    const auto fillOne = [&last](float& value) { value = last += 1.25F; };
    const auto fillArray = [&fillOne](auto& values) { std::ranges::for_each(values, fillOne); };
    const auto fillArrays = [&fillArray](auto&... arrays) { (fillArray(arrays), ...); };
    sample.valid = true;
    sample.imu_timestamp = 0x1112131415161718;
    sample.barometer_timestamp = 0x2122232425262728;
    sample.magnetometer_timestamp = 0x3132333435363738;
    sample.sync_count = -0x01020304;
    sample.sample_state = 0xA5;
    sample.magnetometer_available = true;
    sample.barometer_available = true;
    sample.heading_state = 0x41424344;
    sample.extra_temperatures_present = true;
    fillArrays(sample.orientation, sample.translation, sample.vector_1, sample.vector_2, sample.vector_3,
               sample.vector_4, sample.variances_a, sample.variances_b, sample.orientation_covariance);
    fillOne(sample.imu_temperature);
    fillArrays(sample.magnetic_vector_1, sample.magnetic_vector_2);
    for (float* value : {&sample.heading_accuracy, &sample.heading, &sample.barometer_temperature, &sample.pressure,
                         &sample.reserved, &sample.relative_altitude}) {
        fillOne(*value);
    }
    fillArrays(sample.extra_temperatures, sample.metadata_orientation, sample.metadata_translation);
    return sample;
}

/// The bytes of stored data as a test writes them down, two hexadecimal digits each.
inline std::vector<uint8_t> fromHex(std::string_view digits) {
    std::vector<uint8_t> bytes(digits.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::from_chars(digits.data() + 2 * i, digits.data() + 2 * i + 2, bytes[i], 16);
    }
    return bytes;
}

}  // namespace oru::test
