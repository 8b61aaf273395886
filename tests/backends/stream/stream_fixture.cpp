#include "backends/stream/stream_fixture.hpp"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "support/transport_suppressions.hpp"

extern "C" {
#include <libavutil/log.h>
}

namespace oru::test {
namespace {

constexpr uint64_t kFirstTimeNs = 1'700'000'000'000'000'000;
constexpr uint64_t kFramePeriodNs = 33333333;

// The libraries' own messages would bury those of the tests.
[[maybe_unused]] const bool kQuiet = [] {
    av_log_set_level(AV_LOG_QUIET);
    routeStreamLibraryLog();
    return true;
}();

}  // namespace

uint16_t freePort() {
    const int handle = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    const bool bound = bind(handle, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                       getsockname(handle, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    close(handle);
    return bound ? ntohs(address.sin_port) : uint16_t{0};
}

UDPOutConfig streamConfiguration(uint16_t port, uint32_t width, uint32_t height, int fps) {
    UDPOutConfig configuration{};
    configuration.codec = PLAIN_CODEC;
    configuration.port = port;
    configuration.bitrate = 4000;
    configuration.gop_size = 2 * fps;
    configuration.chunk_size = 16084;
    configuration.width = width;
    configuration.height = height;
    configuration.fps = fps;
    configuration.serial_number = 4711;
    configuration.camera_fw = 513;
    configuration.sensors_fw = 1027;
    configuration.model = MODEL_MONO_3UM;
    configuration.flipped = true;
    configuration.version = 2;
    return configuration;
}

uint64_t numberedTime(uint64_t number) {
    return kFirstTimeNs + number * kFramePeriodNs;
}

rlxrw::rlxSampleMetadata numberedMetadata(uint64_t number) {
    rlxrw::rlxSampleMetadata metadata{};
    for (std::size_t i = 0; i < sizeof(metadata.bytes); ++i) {
        metadata.bytes[i] = static_cast<unsigned char>(i * 7 + number * 13 + 1);
    }
    const std::array<float, 4> orientation = {0.0F, 0.0F, 0.0F, 1.0F + static_cast<float>(number)};
    std::memcpy(metadata.bytes, orientation.data(), sizeof(orientation));
    return metadata;
}

std::vector<IMUPacket> numberedSamples(uint64_t number, uint64_t time, int count) {
    std::vector<IMUPacket> packets;
    for (int i = 0; i < count; ++i) {
        IMUPacket packet;
        packet.valid = true;
        packet.imu_timestamp =
            time - kFramePeriodNs / 2 + static_cast<uint64_t>(i) * 1'000'000 / static_cast<uint64_t>(count);
        packet.sync_count = i == 0 ? 1 : 0;
        packet.orientation = {0.1F * static_cast<float>(i), 0.0F, -0.0F, 1.0F};
        packet.vector_1 = {static_cast<float>(number), static_cast<float>(i), 9.81F};
        packet.imu_temperature = 30.5F;
        packet.orientation_covariance[5] = 0.25F;
        packet.metadata_translation[2] = static_cast<float>(number % 7);
        packets.push_back(packet);
    }
    return packets;
}

NumberedSource::NumberedSource(UDPOutput& target, uint32_t imageWidth, uint32_t imageHeight, int fps, int samplesEach)
    : sender(target),
      width(imageWidth),
      height(imageHeight),
      samplesPerFrame(samplesEach),
      stride(fps < 30 ? 30 / static_cast<uint64_t>(fps) : 1),
      periodNs(1'000'000'000 / static_cast<uint64_t>(fps)) {}

void NumberedSource::step(const std::function<void(uint64_t)>& before) {
    lastNumber += stride;
    image = numberedImage(width, height, lastNumber);
    const uint64_t time = numberedTime(lastNumber);
    if (before) {
        before(lastNumber);
    }
    sender.asyncingestYUVFrame(image.data(), time, numberedMetadata(lastNumber), static_cast<int>(image.size()));
    for (const IMUPacket& packet : numberedSamples(lastNumber, time, samplesPerFrame)) {
        sender.ingestIMU(packet);
    }
    const uint64_t now = clock->monotonicNanoseconds();
    nextNs = nextNs + periodNs < now ? now + periodNs : nextNs + periodNs;
    std::this_thread::sleep_for(std::chrono::nanoseconds(nextNs - now));
}

bool readNext(UDPInput& receiver, std::vector<unsigned char>& image) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < end) {
        if (receiver.readStreamData(image.data(), nullptr)) {
            return true;
        }
    }
    return false;
}

}  // namespace oru::test
