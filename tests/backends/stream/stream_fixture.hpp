#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "backends/stream/stream_factory.hpp"
#include "doubles/CalibrationKeeper.hpp"
#include "doubles/numbered_images.hpp"
#include "utils/Clock.hpp"

namespace oru::test {

using doubles::CalibrationKeeper;
using doubles::drawNumber;
using doubles::numberedImage;
using doubles::readImage;
using doubles::SeenImage;

/// A port that nothing listened on a moment ago.
uint16_t freePort();

UDPOutConfig streamConfiguration(uint16_t port, uint32_t width = 320, uint32_t height = 240, int fps = 30);

/// Metadata and samples whose every byte depends on the frame's number.
rlxrw::rlxSampleMetadata numberedMetadata(uint64_t number);
std::vector<IMUPacket> numberedSamples(uint64_t number, uint64_t time, int count);
uint64_t numberedTime(uint64_t number);

/// Sends numbered frames at a steady pace, with their samples. Numbers count 30ths of a second: at 15 frames/s every
/// second one is sent.
class NumberedSource {
public:
    NumberedSource(UDPOutput& target, uint32_t imageWidth, uint32_t imageHeight, int fps, int samplesEach = 4);

    /// Hands over one frame and its samples, then waits for the next one's time; `before` learns the frame's number.
    void step(const std::function<void(uint64_t)>& before = {});
    [[nodiscard]] uint64_t number() const { return lastNumber; }
    void setNumber(uint64_t number) { lastNumber = number; }

private:
    UDPOutput& sender;
    uint32_t width;
    uint32_t height;
    int samplesPerFrame;
    uint64_t stride;
    std::vector<unsigned char> image;
    uint64_t lastNumber = 0;
    uint64_t periodNs;
    uint64_t nextNs = 0;
    std::unique_ptr<Clock> clock = makeSystemClock();
};

/// What a busy machine may take for something that an idle one does at once.
inline constexpr std::chrono::seconds kPatience{20};

/// Reads until a frame comes; false when kPatience is over.
[[nodiscard]] bool readNext(UDPInput& receiver, std::vector<unsigned char>& image);

}  // namespace oru::test
