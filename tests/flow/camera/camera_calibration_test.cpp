// Where open() finds the calibration of a camera that brings none of its own: a recording without its text.

#include <gtest/gtest.h>

#include <chrono>

#include "backends/calibration_fetch/HttpServer.hpp"
#include "backends/rlx/recording_fixture.hpp"
#include "doubles/ScopedEnvironment.hpp"
#include "doubles/TemporaryDirectory.hpp"
#include "oru/CameraOne.hpp"
#include "unit/calibration/calibration_texts.hpp"

namespace oru {
namespace {

using doubles::ScopedEnvironment;
using doubles::TemporaryDirectory;

constexpr const char* kName = "SN60123456.conf";  // of the recorded camera

class UncalibratedRecording : public testing::Test {
protected:
    UncalibratedRecording() {
        rlx_test::record(recording.path("a.rlx2"), {.width = 960, .height = 600, .calibrated = false}, 5);
        std::filesystem::create_directories(data.path("koru/settings"));
    }

    /// What an application gets that names neither a settings path nor a camera.
    [[nodiscard]] ERROR_CODE open(CameraOne& camera) const {
        InitParametersOne parameters;
        parameters.input.setFromFile(recording.path("a.rlx2").c_str());
        return camera.open(parameters);
    }
    [[nodiscard]] ERROR_CODE openFrom(const std::string& address) const {
        const ScopedEnvironment variable("KORU_CALIB_URL", address.c_str());
        CameraOne camera;
        const ERROR_CODE result = open(camera);
        EXPECT_EQ(camera.isOpened(), result == SUCCESS);
        return result;
    }
    [[nodiscard]] bool hasStored() const { return !std::filesystem::is_empty(data.path("koru/settings")); }

    TemporaryDirectory recording;
    TemporaryDirectory data;
    ScopedEnvironment settings{"XDG_DATA_HOME", data.path("").c_str()};
    ScopedEnvironment noAddress{"KORU_CALIB_URL", nullptr};
};

TEST_F(UncalibratedRecording, OpensWithTheCalibrationOfTheAddressAndLaterWithoutTheServer) {
    CameraOne camera;
    {
        HttpServer server([](const HttpConnection& client) { client.send(httpAnswer(kWholeCalibration)); });
        ASSERT_TRUE(server.isReady());
        const ScopedEnvironment address("KORU_CALIB_URL", server.url("/calib").c_str());

        ASSERT_EQ(open(camera), SUCCESS);

        EXPECT_EQ(server.lastRequest(), "GET /calib/SN60123456.conf HTTP/1.1");
    }
    EXPECT_EQ(camera.getCameraInformation().configuration.raw_calibration.fx, 1066.5F);
    EXPECT_EQ(camera.grab(), SUCCESS);
    EXPECT_EQ(data.read("koru/settings/" + std::string(kName)), kWholeCalibration);
    (void)camera.close();
    EXPECT_EQ(open(camera), SUCCESS) << "it was stored";
}

TEST_F(UncalibratedRecording, IsRefusedSoonWithoutAnAddressOrAServer) {
    const std::string gone = HttpServer([](const HttpConnection& /*client*/) {}).url("/");
    for (const std::string& address : {std::string(), gone}) {
        const auto begin = std::chrono::steady_clock::now();

        EXPECT_EQ(openFrom(address), CALIBRATION_MISSING) << address;

        // A download may take five seconds; the rest is for a busy machine.
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20)) << address;
        EXPECT_FALSE(hasStored()) << address;
    }
}

}  // namespace
}  // namespace oru
