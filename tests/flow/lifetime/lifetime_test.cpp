// The end of a process whose cameras are static objects: in order, whatever they were doing.

#include <gtest/gtest.h>

#include <string>

#include "backends/stream/stream_fixture.hpp"
#include "doubles/ChildProcess.hpp"
#include "doubles/TemporaryDirectory.hpp"

namespace oru::test {
namespace {

struct Ending {
    const char* program;
    const char* place;
    const char* mode;
    const char* way;
    const char* state;
};

void expectOrderly(const Ending& ending) {
    SCOPED_TRACE(std::string(ending.program) + " " + ending.place + " " + ending.mode + " " + ending.way + " " +
                 ending.state);
    const doubles::TemporaryDirectory folder;
    doubles::ChildProcess child({ending.program, ending.place, ending.mode, ending.way, ending.state, folder.path(""),
                                 std::to_string(freePort())});
    ASSERT_TRUE(child.hasStarted());
    const std::string said = child.rest();
    EXPECT_EQ(child.exitStatus(), 0);
    EXPECT_EQ(said, "all gone\n");
}

class StaticCamera : public testing::TestWithParam<const char*> {};

TEST_P(StaticCamera, EndsWithTheProcessFromEveryPlaceByEveryWay) {
    const char* const mode = GetParam();
    for (const Ending& ending : {
             Ending{ORU_STATIC_CAMERAS, "global", mode, "return", "open"},
             Ending{ORU_STATIC_CAMERAS, "function", mode, "exit", "open"},
             Ending{ORU_STATIC_CAMERAS_SHARED, "function", mode, "return", "open"},
             Ending{ORU_STATIC_CAMERAS_SHARED, "global", mode, "exit", "closed"},
         }) {
        expectOrderly(ending);
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, StaticCamera, testing::Values("live", "recording", "recorded", "sending", "receiving"),
                         [](const auto& tested) { return std::string(tested.param); });

}  // namespace
}  // namespace oru::test
