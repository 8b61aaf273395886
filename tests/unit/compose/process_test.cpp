// What a program says to the library as a whole.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "logging/log.hpp"
#include "oru/logging.hpp"
#include "oru/version.hpp"

namespace oru {
namespace {

class Log : public ::testing::Test {
protected:
    Log() {
        setLogSink([this](const LogMessage& message) { messages.push_back(message); });
    }
    ~Log() override {
        setLogSink({});
        setLogLevel(before);
    }

    LOG_LEVEL before = getLogLevel();
    std::vector<LogMessage> messages;  // of the library's thread until flushLog
};

TEST_F(Log, SinkReceivesTextLevelAndPlace) {
    setLogLevel(LOG_LEVEL::TRACE);
    ORU_LOG(TraceL2, "number {}", 7);
    const int line = __LINE__ - 1;
    ORU_LOG(Critical, "last");
    flushLog();

    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].level, LOG_LEVEL::TRACE);
    EXPECT_EQ(messages[0].text, "number 7");
    EXPECT_EQ(messages[0].line, line);
    EXPECT_NE(messages[0].file.find("process_test.cpp"), std::string::npos);
    EXPECT_EQ(messages[1].level, LOG_LEVEL::CRITICAL);
    EXPECT_STREQ(toString(messages[1].level), "CRITICAL");
}

TEST_F(Log, ThresholdAdmitsItselfAndAllAbove) {
    for (const LOG_LEVEL level : {LOG_LEVEL::TRACE, LOG_LEVEL::DEBUG, LOG_LEVEL::INFO, LOG_LEVEL::WARNING,
                                  LOG_LEVEL::ERROR, LOG_LEVEL::CRITICAL, LOG_LEVEL::SILENT}) {
        SCOPED_TRACE(toString(level));
        messages.clear();
        setLogLevel(level);
        EXPECT_EQ(getLogLevel(), level);
        ORU_LOG(TraceL3, "a");
        ORU_LOG(Debug, "b");
        ORU_LOG(Info, "c");
        ORU_LOG(Warning, "d");
        ORU_LOG(Error, "e");
        ORU_LOG(Critical, "f");
        flushLog();
        EXPECT_EQ(messages.size(), static_cast<std::size_t>(6 - static_cast<int>(level)));
    }
}

TEST_F(Log, SinkThatThrowsAndSinkThatIsTakenBackDoNoHarm) {
    setLogLevel(LOG_LEVEL::INFO);
    setLogSink([this](const LogMessage& message) {
        messages.push_back(message);
        throw std::runtime_error("full");
    });
    ORU_LOG(Info, "one");
    ORU_LOG(Info, "two");

    setLogSink({});

    ORU_LOG(Info, "this one goes to standard error");
    flushLog();
    EXPECT_EQ(messages.size(), 2U) << "what was logged before went to the sink, nothing after";
}

TEST(Version, IsThatOfTheProject) {
    EXPECT_STREQ(version(), ORU_VERSION);
}

}  // namespace
}  // namespace oru
