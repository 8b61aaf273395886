// Who may view a stream, and what everybody is told about it.
#include <gtest/gtest.h>
#include <srt/access_control.h>

#include <chrono>
#include <cstdlib>
#include <optional>

#include "backends/stream/Loopback.hpp"
#include "backends/stream/RawCaller.hpp"
#include "doubles/LogCapture.hpp"
#include "doubles/ScopedEnvironment.hpp"

namespace oru::test {
namespace {

using doubles::LogCapture;
using doubles::ScopedEnvironment;

constexpr char kViewing[] = "viewing-key-A7";
constexpr char kControl[] = "control-key-B9";
constexpr char kWrong[] = "neither-of-the-two";

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool waitFor(const std::function<bool()>& condition) {
    for (int i = 0; i < 500 && !condition(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

class KeyedStream : public Loopback {
protected:
    void start(const char* viewing, const char* control = nullptr) {
        const ScopedEnvironment viewingKey("KORU_STREAM_PASSPHRASE", viewing);
        const ScopedEnvironment controlKey("KORU_STREAM_CONTROL_PASSPHRASE", control);
        startSender(streamConfiguration(freePort()));
        startSource();
    }
    void TearDown() override {
        Loopback::TearDown();
        sender.reset();
    }
    int openWith(const char* viewing, UDPInput& receiver) const {
        const ScopedEnvironment viewingKey("KORU_STREAM_PASSPHRASE", viewing);
        return receiver.open("127.0.0.1", settings.port, 0);
    }
    /// Whether a message of this level holds both texts.
    static bool said(LogCapture& log, LogLevel level, const std::string& one, const std::string& two) {
        const std::vector<std::string> texts = log.texts(level);
        return std::any_of(texts.begin(), texts.end(),
                           [&](const std::string& text) { return contains(text, one) && contains(text, two); });
    }
};

TEST_F(KeyedStream, ShowsImagesToWhoeverHoldsTheKey) {
    start(kViewing);
    auto receiver = makeReceiver();

    ASSERT_EQ(openWith(kViewing, *receiver), 0);
    EXPECT_TRUE(readNext(*receiver, image));

    RawCaller viewer(settings.port, RawCaller::Kind::VIEWER, kViewing);
    int state = -1;
    int size = sizeof(state);
    ASSERT_TRUE(viewer.connected());
    ASSERT_EQ(srt_getsockflag(viewer.get(), SRTO_KMSTATE, &state, &size), 0);
    EXPECT_EQ(state, SRT_KM_S_SECURED);
}

TEST_F(KeyedStream, RefusesEveryOtherKeyAndSaysSoOnBothSides) {
    const struct {
        const char* sender;
        const char* receiver;
        const char* receiverSays;
        const char* senderSays;
    } cases[] = {
        {kViewing, kWrong, "is not the sender's", "its key is not KORU_STREAM_PASSPHRASE"},
        {kViewing, nullptr, "the sender wants a key", "its key is not KORU_STREAM_PASSPHRASE"},
        {nullptr, kWrong, "the sender has no key", "KORU_STREAM_PASSPHRASE is not set here"},
    };
    for (const auto& [senderKey, receiverKey, receiverSays, senderSays] : cases) {
        SCOPED_TRACE(receiverSays);
        start(senderKey);
        LogCapture log;
        auto receiver = makeReceiver();

        const uint64_t begin = clock->monotonicNanoseconds();
        EXPECT_EQ(openWith(receiverKey, *receiver), -4);
        const uint64_t elapsed = clock->monotonicNanoseconds() - begin;

        EXPECT_LT(elapsed, 8'000'000'000U) << "3 s and what a busy machine adds";
        EXPECT_TRUE(said(log, LogLevel::Error, "127.0.0.1:" + std::to_string(settings.port), receiverSays));
        EXPECT_TRUE(waitFor([&, says = senderSays] { return said(log, LogLevel::Warning, "refused", says); }));
        EXPECT_EQ(sender->status().receivers, 0U);
        TearDown();
    }
}

TEST_F(KeyedStream, OpensControlToTheControlKeyAlone) {
    const struct {
        const char* senderControl;
        const char* callerKey;
        int rejection;
    } cases[] = {{kControl, kControl, 0},
                 {kControl, kViewing, SRT_REJ_BADSECRET},
                 {kControl, kWrong, SRT_REJ_BADSECRET},
                 {kControl, "", SRT_REJ_UNSECURE},
                 {nullptr, kControl, SRT_REJX_FORBIDDEN},
                 {nullptr, kViewing, SRT_REJX_FORBIDDEN},
                 {nullptr, "", SRT_REJX_FORBIDDEN}};
    for (const auto& [senderControl, callerKey, rejection] : cases) {
        SCOPED_TRACE(std::string(senderControl == nullptr ? "none" : senderControl) + " against " + callerKey);
        start(kViewing, senderControl);
        LogCapture log;

        const RawCaller caller(settings.port, RawCaller::Kind::CONTROL, callerKey);

        EXPECT_EQ(caller.connected(), rejection == 0);
        EXPECT_EQ(caller.rejection(), rejection);
        if (rejection != 0) {
            EXPECT_TRUE(waitFor([&] {
                return said(log, LogLevel::Warning, "control from 127.0.0.1", "KORU_STREAM_CONTROL_PASSPHRASE");
            }));
        }
        TearDown();
    }
}

TEST_F(KeyedStream, SaysWhenASenderComesBackWithAnotherKeyAndFindsItWithTheOldOne) {
    start(kViewing);
    auto receiver = makeReceiver();
    ASSERT_EQ(openWith(kViewing, *receiver), 0);
    ASSERT_TRUE(readNext(*receiver, image));
    const auto restart = [&](const char* key) {
        stopSource();
        const ScopedEnvironment viewingKey("KORU_STREAM_PASSPHRASE", key);
        sender.reset();
        startSender(settings);
        startSource();
    };

    LogCapture log;
    restart(kWrong);
    EXPECT_TRUE(waitFor([&] {
        (void)receiver->readStreamData(image.data(), nullptr);
        return said(log, LogLevel::Warning, "refuses this receiver", "is not the sender's");
    }));
    EXPECT_EQ(sender->status().receivers, 0U);
    restart(kViewing);
    EXPECT_TRUE(readNext(*receiver, image));
}

TEST_F(KeyedStream, DoesNotStartWithAKeyThatIsNoGood) {
    const ScopedEnvironment shortKey("KORU_STREAM_PASSPHRASE", "short");
    LogCapture log;
    sender = makeStreamSender(*clock, senderTexts, false);
    auto receiver = makeReceiver();

    EXPECT_EQ(sender->open(streamConfiguration(freePort())), SENDER_UNUSABLE_KEY);
    EXPECT_FALSE(sender->isRunning());
    EXPECT_EQ(receiver->open("127.0.0.1", 30000, 0), STREAM_UNUSABLE_KEY);
    EXPECT_TRUE(said(log, LogLevel::Error, "KORU_STREAM_PASSPHRASE", "10 to 79"));
}

TEST_F(KeyedStream, KeysNeverReachTheLog) {
    const std::string keys[] = {kViewing, kControl, kWrong, "tooshort1", std::string(80, 'x')};
    LogCapture log(LogLevel::TraceL3);
    srt_setloglevel(LOG_DEBUG);
    start(kViewing, kControl);
    {
        const ScopedEnvironment controlKey("KORU_STREAM_CONTROL_PASSPHRASE", kControl);
        auto receiver = makeReceiver();
        EXPECT_EQ(openWith(kViewing, *receiver), 0);
        EXPECT_NE(receiver->setGrabberSettingsValue(GAIN, 1, false), 0);
    }
    for (const std::string& key : keys) {
        auto receiver = makeReceiver();
        (void)openWith(key.c_str(), *receiver);
        const RawCaller stranger(settings.port, RawCaller::Kind::CONTROL, key.size() > 79 ? "" : key);
        const ScopedEnvironment controlKey("KORU_STREAM_CONTROL_PASSPHRASE", key.c_str());
        auto other = makeReceiver();
        if (openWith(kViewing, *other) == 0) {
            (void)other->setGrabberSettingsValue(GAIN, 1, false);
        }
    }
    EXPECT_TRUE(waitFor([&] { return said(log, LogLevel::Warning, "refused", ""); }));
    routeStreamLibraryLog();

    const std::vector<LogRecord> records = log.records();
    EXPECT_GT(records.size(), 10U);
    for (const LogRecord& record : records) {
        for (const std::string& key : keys) {
            EXPECT_FALSE(contains(record.text, key)) << record.text;
        }
    }
}

TEST_F(KeyedStream, OpensInAPlayerWithTheKeyInItsAddress) {
    if (std::system("ffprobe -hide_banner -protocols 2>/dev/null | grep -q srt") != 0) {
        GTEST_SKIP() << "no ffprobe with SRT here";
    }
    start(kViewing);
    const auto probe = [&](const std::string& query) {
        const std::string command =
            "timeout 20 ffprobe -v quiet -analyzeduration 1000000 -show_entries stream=codec_name srt://127.0.0.1:" +
            std::to_string(settings.port) + query + " | grep -q codec_name=h264";
        return std::system(command.c_str()) == 0;
    };

    EXPECT_TRUE(probe("?passphrase=" + std::string(kViewing)));
    EXPECT_FALSE(probe("?passphrase=" + std::string(kWrong)));
    EXPECT_FALSE(probe(""));
}

}  // namespace
}  // namespace oru::test
