// One end of a stream in a process of its own, so that tests can kill it.
//   stream_peer send PORT FIRST_NUMBER WIDTH HEIGHT FPS
//   stream_peer receive HOST PORT SECONDS       prints one line: frames wrong missing samples
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "stream_fixture.hpp"

namespace oru::test {
namespace {

int send(char** arguments) {
    const auto port = static_cast<uint16_t>(std::atoi(arguments[0]));
    const auto width = static_cast<uint32_t>(std::atoi(arguments[2]));
    const auto height = static_cast<uint32_t>(std::atoi(arguments[3]));
    const int fps = std::atoi(arguments[4]);
    const auto clock = makeSystemClock();
    TextCalibration texts;
    const auto sender = makeStreamSender(*clock, texts, false);
    UDPOutConfig configuration = streamConfiguration(port, width, height, fps);
    configuration.bitrate = std::max(1000U, width * height * static_cast<uint32_t>(fps) / 5000);
    if (sender->open(configuration) != 0) {
        return 1;
    }
    NumberedSource source(*sender, width, height, fps);
    source.setNumber(std::strtoull(arguments[1], nullptr, 10));
    while (true) {
        source.step();
    }
}

int receive(char** arguments) {
    const auto clock = makeSystemClock();
    TextCalibration texts;
    const auto receiver = makeStreamReceiver(*clock, texts, nullptr, false);
    if (receiver->open(arguments[0], static_cast<unsigned short>(std::atoi(arguments[1])), 0) != 0) {
        return 1;
    }
    const StreamDescription camera = receiver->description();
    std::vector<unsigned char> image(std::size_t{camera.width} * camera.height * 2);
    unsigned long frames = 0;
    unsigned long wrong = 0;
    unsigned long samples = 0;
    const uint64_t end = clock->monotonicNanoseconds() + std::strtoull(arguments[2], nullptr, 10) * 1000000000;
    while (clock->monotonicNanoseconds() < end) {
        if (!receiver->readStreamData(image.data(), nullptr)) {
            continue;
        }
        const SeenPicture seen = readPicture(image, camera.width, camera.height);
        const rlxrw::rlxSampleMetadata expected = numberedMetadata(seen.number);
        const rlxrw::rlxSampleMetadata got = receiver->frameMetadata();
        const bool right = seen.mean_error < 10.0 && receiver->frameTimestamp() == numberedTime(seen.number) &&
                           std::memcmp(got.bytes, expected.bytes, sizeof(got)) == 0;
        ++frames;
        wrong += right ? 0 : 1;
        samples += receiver->takeImuPacketsBefore(receiver->frameTimestamp()).size();
        if (frames == 1) {
            std::printf("first\n");
            std::fflush(stdout);
        }
    }
    const auto lost = static_cast<unsigned long>(receiver->counters().lost());
    std::printf("%lu %lu %lu %lu\n", frames, wrong, lost, samples);
    return 0;
}

}  // namespace
}  // namespace oru::test

int main(int count, char** arguments) {
    const std::string_view role = count > 1 ? arguments[1] : "";
    if (role == "send" && count == 7) {
        return oru::test::send(arguments + 2);
    }
    if (role == "receive" && count == 5) {
        return oru::test::receive(arguments + 2);
    }
    return 2;
}
