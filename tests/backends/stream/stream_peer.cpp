// One end of a stream in a process of its own, so that tests can kill it.
//   stream_peer send PORT FIRST_NUMBER WIDTH HEIGHT FPS
//   stream_peer receive HOST PORT SECONDS
// The receiver prints "first" with the first frame, and at the end one line: frames, wrong ones, lost ones (by the
// counters), samples, missing ones (by their numbers), wrong samples, and how many were lost only because a machine was
// too slow.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "backends/stream/stream_fixture.hpp"

namespace oru::test {
namespace {

int send(char** arguments) {
    const auto port = static_cast<uint16_t>(std::atoi(arguments[0]));
    const auto width = static_cast<uint32_t>(std::atoi(arguments[2]));
    const auto height = static_cast<uint32_t>(std::atoi(arguments[3]));
    const int fps = std::atoi(arguments[4]);
    const auto clock = makeSystemClock();
    CalibrationKeeper texts;
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

/// Whether samples come in unbroken order, each as it was made.
class SampleCheck {
public:
    void take(const std::vector<IMUPacket>& packets) {
        for (const IMUPacket& packet : packets) {
            const auto number = static_cast<uint64_t>(packet.vector_1[0]);
            const auto index = static_cast<std::size_t>(packet.vector_1[1]);
            const auto made = numberedSamples(number, numberedTime(number), kPerFrame);
            const bool exact = index < made.size() && packet == made[index];
            const bool follows = count == 0 || (index == 0 ? lastIndex == kPerFrame - 1 && number > lastNumber
                                                           : index == lastIndex + 1 && number == lastNumber);
            const bool even = index != 0 || stride == 0 || number == lastNumber + stride;
            errors += exact && follows && even ? 0 : 1;
            stride = index == 0 && count > 0 ? number - lastNumber : stride;
            lastNumber = number;
            lastIndex = index;
            ++count;
        }
    }
    unsigned long count = 0;
    unsigned long errors = 0;

private:
    static constexpr int kPerFrame = 4;
    uint64_t lastNumber = 0;
    uint64_t stride = 0;
    std::size_t lastIndex = 0;
};

class Received {
public:
    explicit Received(UDPInput& input) : receiver(input), camera(input.description()) {
        image.resize(std::size_t{camera.width} * camera.height * 2);
    }
    bool read() {
        if (!receiver.readStreamData(image.data(), nullptr)) {
            return false;
        }
        const SeenImage seen = readImage(image, camera.width, camera.height);
        const rlxrw::rlxSampleMetadata expected = numberedMetadata(seen.number);
        const rlxrw::rlxSampleMetadata got = receiver.frameMetadata();
        const bool right = seen.mean_error < 10.0 && receiver.frameTimestamp() == numberedTime(seen.number) &&
                           std::memcmp(got.bytes, expected.bytes, sizeof(got)) == 0 &&
                           (frames == 0 || seen.number > lastNumber);
        wrong += right ? 0 : 1;
        const auto stride = static_cast<uint64_t>(30 / std::max(1, receiver.announcedFps()));
        missing += frames == 0 ? 0 : (seen.number - lastNumber) / std::max<uint64_t>(1, stride) - 1;
        lastNumber = seen.number;
        ++frames;
        samples.take(receiver.takeImuPacketsBefore(receiver.frameTimestamp()));
        return true;
    }
    void print() const {
        const FrameCounters counters = receiver.counters();
        std::printf("%lu %lu %lu %lu %lu %lu %lu\n", frames, wrong, static_cast<unsigned long>(counters.lost()),
                    samples.count, missing, samples.errors,
                    static_cast<unsigned long>(counters.overwritten + counters.sender_busy));
    }
    unsigned long frames = 0;

private:
    UDPInput& receiver;
    StreamDescription camera;
    std::vector<unsigned char> image;
    SampleCheck samples;
    uint64_t lastNumber = 0;
    unsigned long wrong = 0;
    unsigned long missing = 0;
};

int receive(char** arguments) {
    const auto clock = makeSystemClock();
    CalibrationKeeper texts;
    const auto receiver = makeStreamReceiver(*clock, texts, nullptr, false);
    if (receiver->open(arguments[0], static_cast<unsigned short>(std::atoi(arguments[1])), 0) != 0) {
        return 1;
    }
    Received received(*receiver);
    const uint64_t end = clock->monotonicNanoseconds() + std::strtoull(arguments[2], nullptr, 10) * 1'000'000'000;
    while (clock->monotonicNanoseconds() < end) {
        if (received.read() && received.frames == 1) {
            std::printf("first\n");
            std::fflush(stdout);
        }
    }
    received.print();
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
