#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <future>
#include <stdexcept>
#include <thread>

#include "doubles/LogCapture.hpp"
#include "logging/log.hpp"
#include "logging/log_names.hpp"

namespace oru {
namespace {

using doubles::LogCapture;
using testing::ElementsAre;
using testing::Pair;

constexpr std::array<LogLevel, 8> kLevels = {LogLevel::TraceL3, LogLevel::TraceL2, LogLevel::TraceL1,
                                             LogLevel::Debug,   LogLevel::Info,    LogLevel::Warning,
                                             LogLevel::Error,   LogLevel::Critical};

void logAtEveryLevel() {
    ORU_LOG(TraceL3, "l{}", 0);
    ORU_LOG(TraceL2, "l{}", 1);
    ORU_LOG(TraceL1, "l{}", 2);
    ORU_LOG(Debug, "l{}", 3);
    ORU_LOG(Info, "l{}", 4);
    ORU_LOG(Warning, "l{}", 5);
    ORU_LOG(Error, "l{}", 6);
    ORU_LOG(Critical, "l{}", 7);
}

/// A sink that holds the back end until it is opened.
class Gate {
public:
    LogSink sink() {
        return [this](const LogRecord& record) {
            if (received++ == 0) {
                entered.set_value();
                opened.get_future().wait();
            }
            last = record.text;
        };
    }
    void awaitFirst() { entered.get_future().wait(); }
    void open() { opened.set_value(); }

    std::atomic<int> received{0};
    std::string last;

private:
    std::promise<void> entered;
    std::promise<void> opened;
};

TEST(Log, DeliversExactlyTheLevelsThatTheThresholdAdmits) {
    for (std::size_t threshold = 0; threshold <= kLevels.size(); ++threshold) {
        LogCapture capture(static_cast<LogLevel>(threshold));

        logAtEveryLevel();

        const auto records = capture.records();
        ASSERT_EQ(records.size(), kLevels.size() - threshold);
        for (std::size_t i = 0; i < records.size(); ++i) {
            EXPECT_EQ(records[i].level, kLevels[threshold + i]);
            EXPECT_EQ(records[i].text, "l" + std::to_string(threshold + i));
        }
    }
}

TEST(Log, CarriesFileLineAndTextUnchanged) {
    LogCapture capture;

    ORU_LOG(Info, "{} d\xC3\xA9j\xC3\xA0 {:.2f}\t{}", "[Init] ", 1.5, std::string("x"));
    const int line = __LINE__ - 1;

    const auto records = capture.records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "[Init]  d\xC3\xA9j\xC3\xA0 1.50\tx");
    EXPECT_THAT(records[0].file, testing::EndsWith("logging_test.cpp"));
    EXPECT_EQ(records[0].line, line);
}

TEST(Log, EvaluatesNoArgumentOfASuppressedMessage) {
    LogCapture capture(LogLevel::Info);
    int evaluated = 0;

    ORU_LOG(Debug, "{}", ++evaluated);
    ORU_LOG(Info, "{}", ++evaluated);

    EXPECT_EQ(evaluated, 1);
    EXPECT_THAT(capture.messages(), ElementsAre(Pair(LogLevel::Info, "1")));
}

TEST(Log, SkipsMessagesWithoutALogger) {
    KoruLogger& registry = KoruLogger::get_instance();
    Logger* const former = registry.set_logger(MAIN, nullptr);
    int evaluated = 0;

    ORU_LOG(Critical, "{}", ++evaluated);

    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(registry.set_logger(MAIN, former), nullptr);
    EXPECT_EQ(registry.get_logger(static_cast<LOGGER_NAME>(99)), nullptr);
}

TEST(FailureReason, IsTheFirstErrorOfItsThreadWhateverIsLogged) {
    LogCapture capture(kLogNothing);
    std::string inner;

    FailureReason reason;
    ORU_LOG(Warning, "{} only a warning", "[Area]");
    std::thread([] { ORU_LOG(Error, "of another thread"); }).join();
    {
        const FailureReason nested;
        ORU_REASON("stated {}", 1);
        ORU_LOG(Error, "too late");
        inner = nested.text();
    }
    ORU_LOG(Error, "{}  the disk is full.", "[Area]");
    ORU_LOG(Critical, "and more");

    EXPECT_EQ(inner, "stated 1");
    EXPECT_EQ(reason.text(), "the disk is full");
    EXPECT_TRUE(capture.messages().empty());
}

TEST(FailureReason, KeepsBackMessagesUntilTheyAreDroppedOrItEnds) {
    LogCapture capture(LogLevel::Info);
    const auto fail = [](bool drop) {
        FailureReason reason(FailureReason::Messages::KEEP_BACK);
        ORU_LOG(Info, "info");
        ORU_LOG(Error, "error {}", drop);
        if (drop) {
            reason.dropMessages();
        }
    };

    fail(true);
    keepFailuresOutOfLog(true);
    fail(true);
    fail(false);
    keepFailuresOutOfLog(false);

    EXPECT_THAT(capture.messages(), ElementsAre(Pair(LogLevel::Info, "info"), Pair(LogLevel::Error, "error true"),
                                                Pair(LogLevel::Info, "info"), Pair(LogLevel::Info, "info"),
                                                Pair(LogLevel::Error, "error false")));
}

TEST(Flush, ReturnsOnlyWhenEveryEarlierMessageIsWithTheSink) {
    Gate gate;
    auto logger = make_logger("gated", LogLevel::Info, gate.sink());
    constexpr int kMessages = 500;
    for (int i = 0; i < kMessages; ++i) {
        logger->write(LogLevel::Info, "f", 1, "{}", fmt::make_format_args(i));
    }

    gate.awaitFirst();
    std::atomic<int> seenByFirst{0};
    std::atomic<int> seenBySecond{0};
    std::thread first([&] {
        flush(*logger);
        seenByFirst = gate.received.load();
    });
    std::thread second([&] {
        flush(*logger);
        seenBySecond = gate.received.load();
    });
    gate.open();
    first.join();
    second.join();

    EXPECT_EQ(seenByFirst, kMessages);
    EXPECT_EQ(seenBySecond, kMessages);
}

TEST(Flush, ReturnsInsideASink) {
    Logger* self = nullptr;
    int received = 0;
    auto logger = make_logger("reentrant", LogLevel::Info, [&](const LogRecord&) {
        ++received;
        flush(*self);
    });
    self = logger.get();

    logger->write(LogLevel::Info, "f", 1, "once", {});
    flush(*logger);

    EXPECT_EQ(received, 1);
}

TEST(Logger, KeepsTheOrderOfEachThread) {
    constexpr int kThreads = 4;
    constexpr int kMessages = 300;
    LogCapture capture;

    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread] {
            for (int i = 0; i < kMessages; ++i) {
                ORU_LOG(Info, "{} {}", thread, i);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }

    std::array<int, kThreads> next{};
    for (const auto& [level, text] : capture.messages()) {
        const auto thread = static_cast<std::size_t>(text[0] - '0');
        ASSERT_EQ(text, std::to_string(thread) + " " + std::to_string(next.at(thread)++));
    }
    EXPECT_THAT(next, testing::Each(kMessages));
}

TEST(Logger, DeliversWhatIsQueuedWhenItIsDestroyed) {
    int received = 0;
    {
        auto logger = make_logger("short", LogLevel::Info, [&](const LogRecord&) { ++received; });
        for (int i = 0; i < 100; ++i) {
            logger->write(LogLevel::Info, "f", 1, "x", {});
        }
    }
    EXPECT_EQ(received, 100);
}

TEST(Logger, LosesOnlyTheMessageAtWhichASinkThrows) {
    std::vector<std::string> kept;
    auto logger = make_logger("throwing", LogLevel::Info, [&](const LogRecord& record) {
        if (record.text == "bad") {
            throw std::runtime_error("sink");
        }
        kept.push_back(record.text);
    });

    for (const char* text : {"a", "bad", "b"}) {
        logger->write(LogLevel::Info, "f", 1, "{}", fmt::make_format_args(text));
    }
    flush(*logger);

    EXPECT_THAT(kept, ElementsAre("a", "b"));
}

TEST(Logger, WritesTheFormatItselfWhenItDoesNotFitTheArguments) {
    std::string kept;
    auto logger = make_logger("raw", LogLevel::Info, [&](const LogRecord& record) { kept = record.text; });

    logger->write(LogLevel::Info, "f", 1, "{} and {}", fmt::make_format_args("one"));
    flush(*logger);

    EXPECT_EQ(kept, "{} and {}");
}

TEST(Logger, DropsAndReportsMessagesWhenTheSinkHangs) {
    Gate gate;
    auto logger = make_logger("hanging", LogLevel::Info, gate.sink());
    constexpr int kMessages = 20000;

    for (int i = 0; i < kMessages; ++i) {
        logger->write(LogLevel::Info, "f", 1, "{}", fmt::make_format_args(i));
    }
    gate.open();
    flush(*logger);
    const int receivedWhileHanging = gate.received;
    EXPECT_LT(receivedWhileHanging, kMessages);

    std::vector<std::string> after;
    logger->write(LogLevel::Info, "f", 1, "back", {});
    flush(*logger);
    EXPECT_EQ(gate.received, receivedWhileHanging + 2) << "the report of the loss, then the message";
    EXPECT_EQ(gate.last, "back");
}

TEST(Threshold, ReadsItsNamesInAnyCase) {
    const std::array<const char*, 9> names = {"tracel3", "TraceL2", "TRACEL1",  "debug", "Info",
                                              "warning", "ERROR",   "critical", "None"};
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(parseThreshold(names[i]), static_cast<LogLevel>(i)) << names[i];
    }
    for (const char* text : {"", "warn", " info", "trace", "4"}) {
        EXPECT_EQ(parseThreshold(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace oru
