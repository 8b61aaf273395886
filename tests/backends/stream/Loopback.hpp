#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "backends/stream/stream_fixture.hpp"

namespace oru::test {

/// Sender and receiver in one process; the source runs in a thread of its own while a test reads.
class Loopback : public testing::Test {
protected:
    void startSender(const UDPOutConfig& configuration) {
        settings = configuration;
        sender = makeStreamSender(*clock, senderTexts, false);
        ASSERT_EQ(sender->open(configuration), 0);
        sender->setGrabber(nullptr);
        image.resize(std::size_t{configuration.width} * configuration.height * 2);
    }
    void startSource() {
        producer = std::jthread([this](const std::stop_token& stop) {
            NumberedSource source(*sender, settings.width, settings.height, settings.fps, samplesEach);
            source.setNumber(firstNumber);
            while (!stop.stop_requested()) {
                source.step();
                lastNumber = source.number();
            }
        });
    }
    void stopSource() { producer = {}; }
    /// Sender and source; 320x240 at 30 frames/s where nothing else is said.
    void start(const UDPOutConfig& configuration = streamConfiguration(freePort())) {
        startSender(configuration);
        startSource();
    }
    /// A receiver that is connected to the sender, or null.
    std::unique_ptr<UDPInput> connect() {
        auto receiver = makeReceiver();
        const bool connected = receiver->open("127.0.0.1", settings.port, 0) == 0;
        return connected ? std::move(receiver) : nullptr;
    }
    std::unique_ptr<UDPInput> makeReceiver() { return makeStreamReceiver(*clock, receiverTexts, nullptr, false); }
    void TearDown() override { stopSource(); }

    std::unique_ptr<Clock> clock = makeSystemClock();
    CalibrationKeeper senderTexts;
    CalibrationKeeper receiverTexts;
    UDPOutConfig settings{};
    std::unique_ptr<UDPOutput> sender;
    std::vector<unsigned char> image;  ///< of the sender's size
    uint64_t firstNumber = 0;
    std::atomic<uint64_t> lastNumber{0};
    int samplesEach = 4;
    std::jthread producer;
};

}  // namespace oru::test
