#include <gtest/gtest.h>

#include "backends/stream/control/ControlHandler.hpp"
#include "backends/stream/control/control_messages.hpp"
#include "backends/stream/transport/rate_limit.hpp"
#include "backends/stream/transport/stream_keys.hpp"
#include "doubles/LogCapture.hpp"
#include "doubles/ScopedEnvironment.hpp"
#include "doubles/live_doubles.hpp"

namespace oru::test {
namespace {

using namespace stream;

constexpr char kKey[] = "a control key";
constexpr uint64_t kSecond = 1'000'000'000;

ControlMessage request(ControlOperation operation, int control, std::vector<int32_t> values = {},
                       bool automatic = false) {
    ControlMessage message;
    message.operation = operation;
    message.control = static_cast<VIDEO_SETTINGS>(control);
    message.automatic = automatic;
    message.count = static_cast<uint8_t>(values.size());
    std::copy(values.begin(), values.end(), message.values.begin());
    message.id = 7;
    return message;
}

TEST(ControlMessages, ComeOutAsTheyWentIn) {
    const ControlSeal seal(kKey, {1, 2, 3});
    ControlMessage reply = request(ControlOperation::RANGE, EXPOSURE, {-5, 500});
    reply.reply = true;
    reply.status = ControlStatus::OUT_OF_RANGE;

    for (const ControlMessage& message :
         {request(ControlOperation::READ, GAIN), request(ControlOperation::WRITE, AEC_AGC_ROI, {1, 2, 3, 4}),
          request(ControlOperation::WRITE, AEC_AGC, {}, true), reply}) {
        const ControlBytes bytes = seal.write(message);
        EXPECT_EQ(seal.read(bytes.data(), bytes.size()), message);
    }
    const Greeting greeting = writeGreeting({9, 8, 7});
    EXPECT_EQ(readGreeting(greeting.data(), greeting.size()), (Challenge{9, 8, 7}));
}

TEST(ControlMessages, AreRefusedWhenAnyBitIsChanged) {
    const ControlSeal seal(kKey, {});
    const ControlBytes sound = seal.write(request(ControlOperation::WRITE, GAIN, {40}));

    for (std::size_t bit = 0; bit < 8 * sound.size(); ++bit) {
        ControlBytes changed = sound;
        changed[bit / 8] = static_cast<uint8_t>(changed[bit / 8] ^ 1U << bit % 8);
        EXPECT_FALSE(seal.read(changed.data(), changed.size())) << "bit " << bit;
    }
    EXPECT_FALSE(seal.read(sound.data(), sound.size() - 1));
    EXPECT_TRUE(seal.read(sound.data(), sound.size()));
}

TEST(ControlMessages, AreRefusedFromAnotherConnectionOrKey) {
    const ControlBytes recorded = ControlSeal(kKey, {1}).write(request(ControlOperation::WRITE, GAIN, {40}));

    EXPECT_FALSE(ControlSeal(kKey, {2}).read(recorded.data(), recorded.size()));
    EXPECT_FALSE(ControlSeal("another key", {1}).read(recorded.data(), recorded.size()));
}

TEST(ControlMessages, AreRefusedWithFieldsThatDoNotExist) {
    const ControlBytes sound = ControlSeal(kKey, {}).write(request(ControlOperation::WRITE, GAIN, {40}));
    const struct {
        std::size_t at;
        uint8_t value;
    } cases[] = {{0, 'k'}, {4, 2}, {5, 0}, {5, 4}, {5, 0x80}, {6, 2}, {7, 5}, {20, 1}};
    ASSERT_TRUE(parseControl(sound.data(), sound.size()));
    EXPECT_FALSE(parseControl(sound.data(), 31));

    for (const auto& [at, value] : cases) {
        ControlBytes wrong = sound;
        wrong[at] = value;
        EXPECT_FALSE(parseControl(wrong.data(), wrong.size())) << "byte " << at << " is " << int{value};
    }
}

/// A handler over a scripted 1920 x 1200 camera whose every control goes from 0 to 100.
struct Handler {
    ControlStatus ask(const ControlMessage& message) {
        last = handler.answer(message);
        EXPECT_TRUE(last.reply);
        EXPECT_EQ(last.id, message.id);
        EXPECT_EQ(last.control, message.control);
        return last.status;
    }
    [[nodiscard]] bool deviceHeard(const std::string& call) const { return calls.has(call); }
    /// Whether anything was written to the device.
    [[nodiscard]] bool written() const {
        return std::any_of(calls.all().begin(), calls.all().end(), [](const std::string& call) {
            return call.starts_with("set") || call.starts_with("reset");
        });
    }

    doubles::GrabberScript script;
    doubles::CallLog calls;
    doubles::ScriptedGrabber grabber{script, calls, GMSL};
    int writes = 0;
    ControlHandler handler{[this] { ++writes; }};
    ControlMessage last;
};

TEST(ControlHandler, ReadsAndWritesEachKindOfControl) {
    Handler handler;
    handler.handler.setGrabber(&handler.grabber);
    handler.script.values[GAIN] = 33;
    handler.script.region = {1, 2, 3, 4};
    using Values = std::array<int32_t, 4>;

    EXPECT_EQ(handler.ask(request(ControlOperation::READ, GAIN)), ControlStatus::DONE);
    EXPECT_EQ(handler.last.values, (Values{33, 0, 0, 0}));
    EXPECT_EQ(handler.ask(request(ControlOperation::RANGE, GAIN)), ControlStatus::DONE);
    EXPECT_EQ(handler.last.values, (Values{0, 100, 0, 0}));
    EXPECT_EQ(handler.ask(request(ControlOperation::READ, RANGE_SETTING_16)), ControlStatus::DONE);
    EXPECT_EQ(handler.last.values, (Values{1, 9, 0, 0}));
    EXPECT_EQ(handler.ask(request(ControlOperation::READ, AEC_AGC_ROI)), ControlStatus::DONE);
    EXPECT_EQ(handler.last.values, (Values{1, 2, 3, 4}));
    EXPECT_FALSE(handler.written());

    const struct {
        ControlMessage message;
        const char* call;
    } writes[] = {
        {request(ControlOperation::WRITE, GAIN, {40}), "set 6 40 false"},
        {request(ControlOperation::WRITE, AEC_AGC, {}, true), "set 8 -1 true"},
        {request(ControlOperation::WRITE, RANGE_SETTING_16, {2, 8}), "set 16 2..8 false"},
        {request(ControlOperation::WRITE, RANGE_SETTING_16, {}, true), "set 16 -1..-1 true"},
        {request(ControlOperation::WRITE, AEC_AGC_ROI, {0, 0, 1920, 1200}), "setROI 0 0,0 1920x1200"},
        {request(ControlOperation::WRITE, AEC_AGC_ROI, {}, true), "resetROI 0"},
    };
    for (const auto& [message, call] : writes) {
        EXPECT_EQ(handler.ask(message), ControlStatus::DONE) << call;
        EXPECT_TRUE(handler.deviceHeard(call)) << call;
    }
    EXPECT_EQ(handler.writes, 6);
}

TEST(ControlHandler, KeepsFromTheDeviceWhatItMustNotHear) {
    constexpr int32_t kMost = INT32_MAX;
    const struct {
        ControlMessage message;
        ControlStatus status;
    } cases[] = {
        {request(ControlOperation::WRITE, 21, {1}), ControlStatus::UNKNOWN_CONTROL},
        {request(ControlOperation::WRITE, -1, {1}), ControlStatus::UNKNOWN_CONTROL},
        {request(ControlOperation::READ, 99), ControlStatus::UNKNOWN_CONTROL},
        {request(ControlOperation::RANGE, INT32_MIN), ControlStatus::UNKNOWN_CONTROL},
        {request(ControlOperation::RANGE, AEC_AGC_ROI), ControlStatus::MISFIT},
        {request(ControlOperation::READ, GAIN, {1}), ControlStatus::MISFIT},
        {request(ControlOperation::WRITE, GAIN), ControlStatus::MISFIT},
        {request(ControlOperation::WRITE, GAIN, {1, 2}), ControlStatus::MISFIT},
        {request(ControlOperation::WRITE, GAIN, {1}, true), ControlStatus::MISFIT},
        {request(ControlOperation::WRITE, AEC_AGC_ROI, {1}), ControlStatus::MISFIT},
        {request(ControlOperation::WRITE, RANGE_SETTING_16, {1}), ControlStatus::MISFIT},
        {request(ControlOperation::WRITE, GAIN, {101}), ControlStatus::OUT_OF_RANGE},
        {request(ControlOperation::WRITE, GAIN, {-1}), ControlStatus::OUT_OF_RANGE},
        {request(ControlOperation::WRITE, RANGE_SETTING_17, {9, 2}), ControlStatus::OUT_OF_RANGE},
        {request(ControlOperation::WRITE, RANGE_SETTING_17, {2, 101}), ControlStatus::OUT_OF_RANGE},
        {request(ControlOperation::WRITE, RANGE_SETTING_17, {-1, -1}), ControlStatus::OUT_OF_RANGE},
        {request(ControlOperation::WRITE, AEC_AGC_ROI, {1, 0, 1920, 1200}), ControlStatus::OUT_OF_RANGE},
        {request(ControlOperation::WRITE, AEC_AGC_ROI, {0, 0, 0, 10}), ControlStatus::OUT_OF_RANGE},
        {request(ControlOperation::WRITE, AEC_AGC_ROI, {-4, 0, 8, 8}), ControlStatus::OUT_OF_RANGE},
        {request(ControlOperation::WRITE, AEC_AGC_ROI, {kMost, kMost, kMost, kMost}), ControlStatus::OUT_OF_RANGE},
    };
    Handler handler;
    handler.handler.setGrabber(&handler.grabber);

    for (const auto& [message, status] : cases) {
        EXPECT_EQ(handler.ask(message), status) << message.control << " " << message.values[0];
    }
    EXPECT_FALSE(handler.written());
    EXPECT_EQ(handler.writes, 0);
}

TEST(ControlHandler, SaysWhatTheDeviceSays) {
    Handler handler;
    handler.handler.setGrabber(&handler.grabber);

    handler.script.regionStatus = -1;
    EXPECT_EQ(handler.ask(request(ControlOperation::WRITE, AEC_AGC_ROI, {0, 0, 8, 8})), ControlStatus::DEVICE_REFUSED);
    EXPECT_EQ(handler.ask(request(ControlOperation::READ, AEC_AGC_ROI)), ControlStatus::DEVICE_REFUSED);
    handler.script.accepts = false;
    EXPECT_EQ(handler.ask(request(ControlOperation::WRITE, GAIN, {4})), ControlStatus::OUT_OF_RANGE);
    handler.script.knowsRange = false;
    EXPECT_EQ(handler.ask(request(ControlOperation::WRITE, GAIN, {4})), ControlStatus::UNKNOWN_CONTROL);
    EXPECT_EQ(handler.writes, 0);
}

TEST(ControlHandler, HasNothingToControlWithoutADevice) {
    Handler handler;
    EXPECT_EQ(handler.ask(request(ControlOperation::READ, GAIN)), ControlStatus::NO_CAMERA);
    // The idle grabber of a camera that plays a file.
    handler.script.width = 0;
    handler.handler.setGrabber(&handler.grabber);
    EXPECT_EQ(handler.ask(request(ControlOperation::WRITE, GAIN, {4})), ControlStatus::NO_CAMERA);
    EXPECT_FALSE(handler.written());
}

TEST(ConnectionLimiter, LetsOneAddressInOnlySoOften) {
    ConnectionLimiter limiter;
    uint64_t now = kSecond;
    const auto admitted = [&](uint32_t address, int attempts) {
        int count = 0;
        for (int i = 0; i < attempts; ++i) {
            count += limiter.admit(address, now) ? 1 : 0;
        }
        return count;
    };

    EXPECT_EQ(admitted(1, 1000), static_cast<int>(ConnectionLimiter::kBurst));
    EXPECT_EQ(admitted(2, 1), 1) << "a stranger must not lock the others out";
    now += kSecond;
    EXPECT_EQ(admitted(1, 1000), static_cast<int>(ConnectionLimiter::kPerSecond));
    now += 3600 * kSecond;
    EXPECT_EQ(admitted(1, 1000), static_cast<int>(ConnectionLimiter::kBurst));
}

TEST(ConnectionLimiter, BoundsAllAddressesTogether) {
    ConnectionLimiter limiter;
    int count = 0;
    for (uint32_t address = 1; address <= 10'000; ++address) {
        count += limiter.admit(address, kSecond) ? 1 : 0;
    }
    EXPECT_EQ(count, static_cast<int>(ConnectionLimiter::kAllBurst));
}

TEST(EffectiveKeys, AreRefusedWhenTheyAreNoGood) {
    const std::string sound(EffectiveKeys::kShortest, 'v');
    const std::string longest(EffectiveKeys::kLongest, 'c');
    const struct {
        std::string viewing;
        std::string control;
        bool good;
    } cases[] = {{"", "", true},
                 {sound, longest, true},
                 {"", sound, true},
                 {sound.substr(1), "", false},
                 {longest + "v", "", false},
                 {"", sound.substr(1), false},
                 {"", longest + "c", false},
                 {sound, sound, false}};
    for (const auto& [viewing, control, good] : cases) {
        const doubles::ScopedEnvironment viewingKey(EffectiveKeys::kViewingVariable, viewing.c_str());
        const doubles::ScopedEnvironment controlKey(EffectiveKeys::kControlVariable, control.c_str());
        doubles::LogCapture log;

        const auto keys = effectiveKeys({});

        EXPECT_EQ(keys.has_value(), good) << viewing.size() << " and " << control.size();
        EXPECT_EQ(log.texts(LogLevel::Error).size(), good ? 0U : 1U);
        if (good) {
            EXPECT_EQ(keys->viewing, viewing);
            EXPECT_EQ(keys->control, control);
        }
    }
}

}  // namespace
}  // namespace oru::test
