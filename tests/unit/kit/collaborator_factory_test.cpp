#include "collaborators/CollaboratorFactory.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "doubles/ScopedPlatform.hpp"
#include "doubles/ScriptedFactory.hpp"

namespace oru {
namespace {

std::atomic<int> made{0};

std::shared_ptr<CollaboratorFactory> makeBuiltIn() {
    ++made;
    return std::make_shared<doubles::ScriptedFactory>();
}

// One test, as what is registered stays registered.
TEST(ProcessDefault, IsNullThenBuiltInOnceAndGivesWayToWhatWasSet) {
    EXPECT_EQ(CollaboratorFactory::processDefault(), nullptr);
    EXPECT_TRUE(ArgusCamera::getGMSLDevices(true, false).empty());
    EXPECT_TRUE(getGrabberList(true).empty());
    EXPECT_EQ(CameraMemberHandler::resetMCU(1), FAILURE);
    EXPECT_FALSE(downloadCalibFile("d/", 7));

    CollaboratorFactory::registerBuiltIn(&makeBuiltIn);
    EXPECT_EQ(made, 0);
    std::vector<std::shared_ptr<CollaboratorFactory>> seen(8);
    std::vector<std::thread> threads;
    for (auto& factory : seen) {
        threads.emplace_back([&factory] { factory = CollaboratorFactory::processDefault(); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(made, 1);
    EXPECT_NE(seen.front(), nullptr);
    for (const auto& factory : seen) {
        EXPECT_EQ(factory, seen.front());
    }

    const auto chosen = std::make_shared<doubles::ScriptedFactory>();
    EXPECT_EQ(CollaboratorFactory::setProcessDefault(chosen), nullptr);
    EXPECT_EQ(CollaboratorFactory::processDefault(), chosen);
    EXPECT_EQ(CollaboratorFactory::setProcessDefault(nullptr), chosen);
    EXPECT_EQ(CollaboratorFactory::processDefault(), seen.front());
    CollaboratorFactory::registerBuiltIn(nullptr);
    EXPECT_EQ(CollaboratorFactory::processDefault(), nullptr);
}

TEST(Forwarders, PassTheirArgumentsToTheProcessDefault) {
    const auto factory = std::make_shared<doubles::ScriptedFactory>();
    const doubles::ScopedPlatform scope(factory);
    factory->directory.devices.resize(2);
    factory->directory.reset = INVALID_PARAMETER;
    factory->calibrationSource.onDownload = [] {};

    EXPECT_EQ(ArgusCamera::getGMSLDevices(true, false).size(), 2U);
    EXPECT_EQ(getGrabberList(true).size(), 2U);
    EXPECT_EQ(CameraMemberHandler::resetMCU(1), INVALID_PARAMETER);
    EXPECT_TRUE(downloadCalibFile("d/", 7));
    EXPECT_EQ(factory->log.all(), (std::vector<std::string>{"getGMSLDevices true false", "getGrabberList true",
                                                            "resetMCU 1", "download d/ 7"}));
}

}  // namespace
}  // namespace oru
