#include "backends/rlx/recording_fixture.hpp"
#include "doubles/numbered_images.hpp"
#include "support/transport_suppressions.hpp"  // libx265 leaks a little at every end

extern "C" {
#include <libavutil/log.h>
}

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

namespace oru::rlx_test {

namespace {

constexpr Timestamp kFirstTime = 1'764'000'000'123'456'789;

// As the composed program does.
[[maybe_unused]] const bool kCodersAreSilent = [] {
    av_log_set_level(AV_LOG_QUIET);
    return true;
}();

IMUPacket packetOf(uint64_t seed) {
    std::minstd_rand random(static_cast<unsigned>(seed * 2654435761U + 1));
    const auto number = [&] { return static_cast<float>(random() % 100'000) / 7.0F - 5000.0F; };
    IMUPacket packet;
    packet.valid = true;
    packet.imu_timestamp = kFirstTime + seed * 1000;
    packet.barometer_timestamp = packet.imu_timestamp + 1;
    packet.magnetometer_timestamp = packet.imu_timestamp + 2;
    packet.sync_count = static_cast<int>(random() % 5);
    for (float* field = packet.orientation.data(); field != packet.orientation.data() + 4; ++field) {
        *field = number();
    }
    std::generate(packet.vector_1.begin(), packet.vector_1.end(), number);
    std::generate(packet.vector_4.begin(), packet.vector_4.end(), number);
    std::generate(packet.orientation_covariance.begin(), packet.orientation_covariance.end(), number);
    packet.sample_state = static_cast<uint8_t>(random() % 256);
    packet.imu_temperature = number();
    packet.barometer_available = random() % 2 == 0;
    packet.heading_state = -3;
    packet.relative_altitude = number();
    packet.extra_temperatures = {number(), number()};
    packet.extra_temperatures_present = true;
    packet.metadata_translation = {number(), number(), number()};
    return packet;
}

}  // namespace

rlxrw::RlxRecordingHeader Scene::header() const {
    rlxrw::RlxRecordingHeader header;
    header.version = version;
    header.serial_number = kSerialNumber;
    header.model = MODEL_MONO_3UM;
    header.camera_fw = 1524;
    header.sensors_fw = 777;
    header.imu_data_version = 778;
    header.width = width;
    header.height = height;
    header.fps = fps;
    header.flipped = true;
    header.has_imu = true;
    header.sharpness = 4;
    header.compression_mode = mode;
    header.imu_calibration.values[5] = 0.25F;
    header.has_imu_to_camera = true;
    header.imu_to_camera.setIdentity();
    header.imu_to_camera(0, 3) = 12.5F;
    header.calibration_text = calibrated ? "[LEFT_CAM_FHD1200]\nfx = 743.5\n" : "";
    return header;
}

std::vector<unsigned char> Scene::image(uint64_t number) const {
    return doubles::numberedImage(width, height, number);
}

Timestamp Scene::time(uint64_t number) const {
    return kFirstTime + static_cast<uint64_t>(static_cast<double>(number) * 1e9 / static_cast<double>(fps)) +
           number % 7;
}

rlxrw::rlxSampleMetadata Scene::metadata(uint64_t number) const {
    rlxrw::rlxSampleMetadata metadata{};
    for (std::size_t i = 0; i < sizeof metadata.bytes; ++i) {
        metadata.bytes[i] = static_cast<unsigned char>(number * 31 + i);
    }
    return metadata;
}

IMUPacket Scene::imu(uint64_t number) const {
    return packetOf(number * 100);
}

std::vector<IMUPacket> Scene::packets(uint64_t number) const {
    std::vector<IMUPacket> packets;
    for (uint64_t i = 0; i < number % 4; ++i) {
        packets.push_back(packetOf(number * 100 + i + 1));
    }
    return packets;
}

int writeImage(rlxrw::RLXVideo& recorder, const std::vector<unsigned char>& image, Timestamp time) {
    rlxrw::RlxFrame frame;
    frame.pixels = image.data();
    frame.size = image.size();
    frame.time = time;
    return recorder.writeFrame(frame);
}

int writeSceneFrame(rlxrw::RLXVideo& recorder, const Scene& scene, uint64_t number) {
    const std::vector<unsigned char> image = scene.image(number);
    const std::vector<IMUPacket> packets = scene.packets(number);
    const IMUPacket imu = scene.imu(number);
    rlxrw::RlxFrame frame;
    frame.pixels = image.data();
    frame.size = image.size();
    frame.time = scene.time(number);
    frame.metadata = scene.metadata(number);
    frame.imu = &imu;
    frame.packets = packets.data();
    frame.packet_count = packets.size();
    return recorder.writeFrame(frame);
}

void record(const std::string& path, const Scene& scene, uint64_t count) {
    CalibrationKeeper calibration;
    const auto recorder = makeRlxVideo(calibration);
    ASSERT_EQ(recorder->create(path.c_str(), scene.header()), rlxrw::RLX_CREATED);
    for (uint64_t number = 0; number < count; ++number) {
        ASSERT_EQ(writeSceneFrame(*recorder, scene, number), 0) << number;
    }
    recorder->close();
}

namespace {

bool imageIsRight(const std::vector<unsigned char>& image, const Scene& scene, uint64_t number) {
    return isLossless(scene.mode) ? image == scene.image(number) : doubles::numberIn(image, scene.width) == number;
}

bool factsAreRight(rlxrw::RLXVideo& reader, const Scene& scene, uint64_t number, Timestamp time) {
    rlxrw::rlxSampleMetadata metadata{};
    IMUPacket imu;
    const auto expected = scene.metadata(number);
    const bool second = scene.version == 2;
    const bool imuRight = reader.getFrameIMU(imu) == second && (!second || imu == scene.imu(number));
    // A frame carries the packets of the damaged ones before it as well.
    const std::vector<IMUPacket> own = second ? scene.packets(number) : std::vector<IMUPacket>{};
    const std::vector<IMUPacket> packets = reader.getFrameIMUPackets();
    return time == scene.time(number) && reader.getCurrentMetadata(metadata) &&
           std::equal(std::begin(metadata.bytes), std::end(metadata.bytes), expected.bytes) && imuRight &&
           packets.size() >= own.size() && std::equal(own.rbegin(), own.rend(), packets.rbegin());
}

uint64_t numberAt(const Scene& scene, Timestamp time) {
    uint64_t number =
        static_cast<uint64_t>(static_cast<double>(time - scene.time(0)) * static_cast<double>(scene.fps) / 1e9);
    while (scene.time(number) < time) {
        ++number;
    }
    return number;
}

}  // namespace

Played play(const std::string& path, const Scene& scene) {
    CalibrationKeeper calibration;
    const auto reader = makeRlxVideo(calibration);
    Played played;
    played.open_result = reader->open(path.c_str());
    std::vector<unsigned char> image(std::size_t{scene.width} * scene.height * 2);
    Timestamp time = 0;
    for (int idle = 0; played.open_result == 0 && idle < 100;) {
        const FrameStatus status = reader->readFrame(image.data(), image.size(), time);
        if (status == NO_FRAME) {
            ++idle;
            continue;
        }
        if (status != NEW_FRAME) {
            EXPECT_EQ(status, INPUT_ENDED);
            break;
        }
        const uint64_t number = numberAt(scene, time);
        played.times.push_back(time);
        played.wrong_images += imageIsRight(image, scene, number) ? 0 : 1;
        played.wrong_facts += factsAreRight(*reader, scene, number, time) ? 0 : 1;
    }
    played.counters = reader->counters();
    return played;
}

std::vector<unsigned char> readBytes(const std::string& path) {
    if (!std::filesystem::is_regular_file(path)) {
        return {};
    }
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace oru::rlx_test
