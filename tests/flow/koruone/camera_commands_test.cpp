#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <signal.h>

#include <chrono>
#include <cmath>

#include "backends/calibration_fetch/HttpServer.hpp"
#include "flow/koruone/tool.hpp"

namespace oru {
namespace {

constexpr const char* kSerial = "30010001";

/// Replaces the first number after `key=` in a calibration text.
std::string withValue(std::string text, const std::string& key, const std::string& value) {
    const std::size_t begin = text.find(key);
    EXPECT_NE(begin, std::string::npos) << text;
    const std::size_t number = text.find('=', begin) + 1;
    return text.replace(number, text.find('\n', number) - number, value);
}

/// Whether the camera is shown as held by somebody before half a minute is over.
bool becomesHeld(Tool& tool) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        const nlohmann::json devices = tool.run({"devices", "--json"}).json();
        if (devices.is_array() && !devices.empty() && devices[0].at("availability") != 0) {
            return true;
        }
    }
    return false;
}

TEST(KoruoneDevices, ListsTheCamerasOfTheBus) {
    Tool tool;

    const nlohmann::json devices = tool.run({"devices", "--json"}).json();
    const ToolResult table = tool.run({"devices"});
    tool.environment["KORU_GPU"] = "off";
    const ToolResult withoutGpu = tool.run({"devices"});
    tool.environment["KORU_VIRTUAL_BUS"] = "off";
    const ToolResult none = tool.run({"devices", "--json"});

    ASSERT_EQ(devices.size(), 2U);
    EXPECT_EQ(devices[0],
              (nlohmann::json{
                  {"id", 0}, {"model", 30}, {"serial_number", 30010001}, {"path", "virtual:0"}, {"availability", 0}}));
    EXPECT_EQ(devices[1].at("serial_number"), 31020002);
    EXPECT_NE(table.output.find(kSerial), std::string::npos);
    EXPECT_NE(table.output.find("\nGPU: "), std::string::npos) << table.output;
    EXPECT_NE(withoutGpu.output.find("\nGPU: none (switched off by KORU_GPU); views are drawn on the host\n"),
              std::string::npos)
        << withoutGpu.output;
    EXPECT_EQ(none.status, 0);
    EXPECT_EQ(none.json(), nlohmann::json::array());
}

TEST(KoruoneDevices, SaysWhatIsWrongWithTheBusFileAndFails) {
    Tool tool;
    const std::string path = tool.home.write("bus.ini", "[camera 0]\nmodle = 30\n");
    tool.environment["KORU_VIRTUAL_BUS"] = path;

    const ToolResult devices = tool.run({"devices"});

    EXPECT_EQ(devices.status, 1);
    EXPECT_NE(devices.errors.find(path + ": line 2: unknown key modle in [camera 0]"), std::string::npos);
    EXPECT_EQ(devices.errors.find("cable"), std::string::npos) << devices.errors;
}

TEST(KoruoneReboot, RestartsALiveCamera) {
    Tool tool;

    EXPECT_EQ(tool.run({"reboot"}).status, 0);
}

TEST(KoruoneCalib, ComparesWithTheFactoryAndRefreshes) {
    Tool tool;
    const std::string path = tool.settings() + "SN30010001.conf";
    const ToolResult fetched = tool.run({"calib", "--serial", kSerial, "--refresh"});
    ASSERT_EQ(fetched.status, 0) << fetched.errors;
    EXPECT_NE(fetched.output.find("agrees"), std::string::npos) << fetched.output;
    const std::string factory = tool.home.read("data/koru/settings/SN30010001.conf");
    std::ofstream(path) << withValue(factory, "fx", "1000.5");

    tool.environment["KORU_SDK_LOGGER_LEVEL"] = "warning";
    const ToolResult changed = tool.run({"calib", path});
    const ToolResult grabbed = tool.run({"grab", "--frames", "1", "--resolution", "HD600"});
    const ToolResult refreshed = tool.run({"calib", path, "--refresh"});
    const ToolResult quiet = tool.run({"grab", "--frames", "1", "--resolution", "HD600"});

    EXPECT_EQ(changed.status, 0);
    EXPECT_NE(changed.output.find("differs from the camera's factory calibration in 1 value;"), std::string::npos)
        << changed.output;
    EXPECT_NE(changed.output.find("1000.5"), std::string::npos) << changed.output;
    EXPECT_EQ(grabbed.status, 0);
    EXPECT_NE(grabbed.errors.find("koruone calib --serial 30010001 --refresh"), std::string::npos) << grabbed.errors;
    EXPECT_EQ(refreshed.status, 0) << refreshed.errors;
    EXPECT_EQ(tool.home.read("data/koru/settings/SN30010001.conf"), factory);
    EXPECT_EQ(quiet.errors.find("--refresh"), std::string::npos) << quiet.errors;
}

TEST(KoruoneCalib, PrintsForOthersAndImportsWhatTheyMade) {
    Tool tool;
    const ToolResult asOpenCv = tool.run({"calib", "--serial", kSerial, "--format", "opencv"});
    ASSERT_EQ(asOpenCv.status, 0) << asOpenCv.errors;
    const std::string yaml = tool.home.write("mine.yaml", asOpenCv.output);
    const std::string factory = tool.home.read("data/koru/settings/SN30010001.conf");

    const ToolResult refused = tool.run({"calib", "--serial", kSerial, "--import", yaml});
    const ToolResult imported = tool.run({"calib", "--serial", kSerial, "--import", yaml, "--overwrite"});
    const ToolResult again = tool.run({"calib", "--serial", kSerial, "--format", "opencv"});
    const ToolResult elsewhere =
        tool.run({"calib", "--serial", "7", "--import", yaml, "--settings", "~/mine", "--model", "30"});
    const ToolResult unknown = tool.run({"calib", "--serial", "8", "--import", yaml});

    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.errors.find("--overwrite"), std::string::npos) << refused.errors;
    EXPECT_EQ(imported.status, 0) << imported.errors;
    EXPECT_EQ(again.output, asOpenCv.output) << "nothing is lost on the way";
    const std::string stored = tool.home.read("data/koru/settings/SN30010001.conf");
    EXPECT_NE(stored.find("made_by = imported from mine.yaml"), std::string::npos) << stored;
    EXPECT_NE(factory, stored);
    EXPECT_EQ(elsewhere.status, 0) << elsewhere.errors;
    EXPECT_EQ(unknown.status, 1);
    EXPECT_NE(unknown.errors.find("--model"), std::string::npos) << unknown.errors;
}

TEST(KoruoneCalib, RefusesWhatIsNoCalibration) {
    Tool tool;
    const std::string settings = tool.settings();
    std::filesystem::create_directories(settings);
    std::ofstream(settings + "SN30010001.conf") << "[MISC]\nSensor_ID=nonsense\n\x01\x02";

    const ToolResult shown = tool.run({"calib", settings + "SN30010001.conf"});
    const ToolResult grabbed = tool.run({"grab", "--serial", kSerial, "--frames", "1"});
    const ToolResult missing = tool.run({"calib", settings + "none.conf"});
    const ToolResult unknown = tool.run({"calib", "--serial", "12"});

    EXPECT_EQ(shown.status, 1);
    EXPECT_EQ(grabbed.status, 1);
    EXPECT_NE(grabbed.errors.find("CALIBRATION_INCOMPLETE"), std::string::npos) << grabbed.errors;
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(tool.home.list().size(), 3U) << "something was left behind";  // output, errors, data
}

TEST(KoruoneGrab, IsRefusedWhileAnotherProgramHoldsTheCameraAndTakesItOnceThatIsKilled) {
    Tool first;
    Tool second;
    const Arguments oneFrame{"grab", "--serial", kSerial, "--frames", "1", "--resolution", "HD600"};
    first.start({"grab", "--serial", kSerial, "--frames", "1000000", "--every", "1000000", "--resolution", "HD600"});
    const bool held = becomesHeld(second);

    const ToolResult refused = second.run(oneFrame);
    first.signal(SIGKILL);
    const ToolResult killed = first.wait();
    const ToolResult taken = second.run(oneFrame);

    ASSERT_TRUE(held) << killed.errors;
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.errors.find("CAMERA_IN_USE"), std::string::npos) << refused.errors;
    EXPECT_EQ(killed.status, 1000 + SIGKILL) << "it ended by itself: " << killed.errors;
    EXPECT_EQ(taken.status, 0) << taken.errors;
}

TEST(KoruoneCalib, FetchesFromTheAddressAndKeepsNothingOfAWrongAnswer) {
    Tool tool;
    ASSERT_EQ(tool.run({"calib", "--serial", kSerial, "--refresh"}).status, 0);
    const std::string calibration = tool.home.read("data/koru/settings/SN30010001.conf");
    HttpServer good([&](const HttpConnection& client) { client.send(httpAnswer(calibration)); });
    HttpServer wrong([](const HttpConnection& client) { client.send(httpAnswer("<html>Sign in</html>")); });
    ASSERT_TRUE(good.isReady() && wrong.isReady());

    tool.environment["KORU_CALIB_URL"] = wrong.url("/calib/");
    const ToolResult nothing = tool.run({"calib", "--serial", "60000001"});
    const bool left = std::filesystem::exists(tool.settings() + "SN60000001.conf");
    tool.environment["KORU_CALIB_URL"] = good.url("/calib/");
    const ToolResult fetched = tool.run({"calib", "--serial", "60000001"});

    EXPECT_EQ(nothing.status, 1);
    EXPECT_NE(wrong.lastRequest().find("60000001"), std::string::npos) << wrong.lastRequest();
    EXPECT_FALSE(left) << tool.home.read("data/koru/settings/SN60000001.conf");
    EXPECT_EQ(fetched.status, 0) << fetched.errors;
    EXPECT_EQ(tool.home.read("data/koru/settings/SN60000001.conf"), calibration);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(tool.settings()), {}), 2);
}

TEST(KoruoneInfo, ExpressesTheCalibrationForASize) {
    Tool tool;

    const nlohmann::json whole = tool.run({"info", "--json"}).json();
    const nlohmann::json half = tool.run({"info", "--size", "960x600", "--json"}).json();
    const ToolResult large = tool.run({"info", "--size", "1921x600"});

    EXPECT_EQ(whole.at("serial_number"), 30010001);
    EXPECT_EQ(whole.at("input_type"), "GMSL");
    EXPECT_EQ(whole.at("configuration").at("resolution"), (nlohmann::json{{"width", 1920}, {"height", 1200}}));
    EXPECT_EQ(whole.at("sensors").at("gyroscope").at("unit"), "deg/s");
    EXPECT_TRUE(whole.at("sensors").at("barometer").at("range").at(0).is_null()) << "NaN is no JSON number";
    const double fx = whole.at("configuration").at("raw_calibration").at("fx");
    EXPECT_NEAR(half.at("configuration").at("raw_calibration").at("fx").get<double>(), fx / 2.0, 1e-3);
    EXPECT_EQ(large.status, 1);
    EXPECT_NE(large.errors.find("RESOLUTION_NOT_SUPPORTED"), std::string::npos) << large.errors;
}

TEST(KoruoneImu, WritesEveryPacketOnceAndMeasuresTheirRate) {
    Tool tool;
    const std::string csv = tool.home.path("imu.csv");

    const ToolResult result = tool.run({"imu", "--resolution", "HD600", "--seconds", "1", "--csv", csv, "--plot",
                                        tool.home.path("imu.svg"), "--json"});
    const nlohmann::json printed = result.json();
    const auto rows = readCsv(csv);

    ASSERT_EQ(result.status, 0) << result.errors;
    ASSERT_GT(rows.size(), 100U);
    EXPECT_EQ(rows[0][0], "timestamp_ns");
    EXPECT_EQ(rows.size(), printed.at("packets").get<std::size_t>() + 1);
    for (std::size_t i = 2; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i].size(), rows[0].size());
        EXPECT_EQ(std::stoull(rows[i][0]) - std::stoull(rows[i - 1][0]), 2'500'000U) << "row " << i;
    }
    EXPECT_NEAR(printed.at("rate").get<double>(), 400.0, 0.01);
    EXPECT_EQ(printed.at("gaps"), 0);
    const std::string svg = tool.home.read("imu.svg");
    for (const char* text : {"deg/s", "m/s²", "(deg)", "about z", "time since", "30010001"}) {
        EXPECT_NE(svg.find(text), std::string::npos) << text;
    }
    std::size_t lines = 0;
    for (std::size_t at = svg.find("<polyline"); at != std::string::npos; at = svg.find("<polyline", at + 1)) {
        ++lines;
    }
    EXPECT_EQ(lines, 9U) << "three lines in three panels";
}

TEST(KoruoneImu, AsksForTheCurrentSample) {
    Tool tool;

    const ToolResult result = tool.run({"imu", "--current", "--resolution", "HD600", "--seconds", "1", "--json"});

    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_GT(result.json().at("packets").get<int>(), 20);
    EXPECT_EQ(result.json().at("out_of_order"), 0);
}

TEST(KoruoneControls, ListsEveryControlWithRangeAndDefault) {
    Tool tool;

    const nlohmann::json list = tool.run({"controls", "list", "--json"}).json();

    ASSERT_EQ(list.size(), 21U);
    for (std::size_t i = 0; i < list.size(); ++i) {
        EXPECT_EQ(list[i].at("number"), i);
        EXPECT_TRUE(list[i].at("supported").get<bool>()) << list[i];
    }
    const nlohmann::json& gain = list[6];
    EXPECT_EQ(gain.at("name"), "GAIN");
    EXPECT_EQ(gain.at("automatic"), true);
    EXPECT_EQ(gain.at("default_automatic"), true);
    EXPECT_LT(gain.at("min"), gain.at("max"));
    EXPECT_EQ(list[8].at("default"), 1) << "AEC_AGC";
    EXPECT_EQ(list[16].at("value").size(), 2U) << "a range";
    EXPECT_EQ(list[9].at("default"), (nlohmann::json{0, 0, 1920, 1200})) << "the region";
}

TEST(KoruoneControls, WritesAndReadsBack) {
    struct Case {
        Arguments arguments;
        int status;
        nlohmann::json value;
    };
    const std::vector<Case> cases{
        {{"set", "gain", "40"}, 0, 40},
        {{"set", "RANGE_SETTING_16", "100", "5000"}, 0, {100, 5000}},
        {{"set", "RANGE_SETTING_16", "5000", "100"}, 2, nullptr},
        {{"set", "SHARPNESS", "7"}, 0, 7},
        {{"set", "AEC_AGC", "auto"}, 0, 1},
        {{"set", "GAIN", "100000"}, 2, nullptr},
        {{"roi", "10", "20", "300", "200"}, 0, {10, 20, 300, 200}},
        {{"roi", "0", "0", "99999", "2"}, 2, nullptr},
        {{"get", "SETTING_12"}, 1, nullptr},
        {{"roi"}, 0, {0, 0, 1920, 1200}},
    };
    for (const Case& each : cases) {
        Tool tool;
        Arguments arguments{"controls", "--json"};
        arguments.insert(arguments.end(), each.arguments.begin(), each.arguments.end());

        const ToolResult result = tool.run(arguments);

        const std::string name = each.arguments.front() + " " + each.arguments.back();
        EXPECT_EQ(result.status, each.status) << name << ": " << result.errors;
        if (each.status == 0) {
            EXPECT_EQ(result.json().at("value"), each.value) << name;
        } else {
            EXPECT_NE(result.errors.find("koruone: "), std::string::npos) << name;
        }
    }
}

TEST(KoruoneControls, WritesToTheCameraOfAStreamOrSaysWhyNot) {
    constexpr char kViewing[] = "KORU_STREAM_PASSPHRASE";
    constexpr char kControl[] = "KORU_STREAM_CONTROL_PASSPHRASE";
    const std::string port = std::to_string(20000 + ::getpid() % 10000);
    Tool sender;
    sender.environment[kViewing] = "the-viewing-key";
    sender.environment[kControl] = "the-control-key";
    ASSERT_GT(sender.start({"stream", "--resolution", "HD600", "--port", port}), 0);

    struct Case {
        const char* viewing;
        const char* control;
        Arguments arguments;
        int status;
        const char* says;
    };
    const std::vector<Case> cases{
        {"the-viewing-key", "the-control-key", {"set", "GAIN", "40"}, 0, "GAIN 40"},
        {"the-viewing-key", "the-control-key", {"set", "SHARPNESS", "99"}, 2, "takes from 0 to 8"},
        {"the-viewing-key", "the-control-key", {"roi", "10", "20", "300", "200"}, 0, "AEC_AGC_ROI 10 20 300 200"},
        {"the-viewing-key", "the-control-key", {"set", "GMSL_SETTING_19", "60"}, 0, ""},
        {"the-viewing-key", "another-control-key", {"set", "GAIN", "50"}, 1, "is not the sender's"},
        {"the-viewing-key", "", {"set", "GAIN", "50"}, 1, "KORU_STREAM_CONTROL_PASSPHRASE is not set"},
        {"the-viewing-key", "", {"get", "GMSL_SETTING_19"}, 1, "cannot be read here"},
        {"", "", {"list"}, 1, "cannot open"},
        {"the-viewing-key", "the-control-key", {"get", "GAIN"}, 0, "GAIN 40"},
    };
    const auto run = [&](const Case& each) {
        Tool tool;
        tool.environment[kViewing] = each.viewing;
        tool.environment[kControl] = each.control;
        Arguments arguments{"controls", "--stream", "127.0.0.1:" + port};
        arguments.insert(arguments.end(), each.arguments.begin(), each.arguments.end());
        return tool.run(arguments);
    };
    // A busy machine may take longer to start the sender than a receiver waits for it.
    for (int attempt = 0; attempt < 10 && run(cases.front()).status != 0; ++attempt) {
    }
    for (const Case& each : cases) {
        const ToolResult result = run(each);

        const std::string name = each.arguments.front() + ": " + each.says;
        EXPECT_EQ(result.status, each.status) << name << "; " << result.errors;
        EXPECT_NE((result.output + result.errors).find(each.says), std::string::npos) << name << "; " << result.errors;
    }
    sender.signal(SIGTERM);
    (void)sender.wait();
}

TEST(KoruoneControls, ResetPutsEveryControlToItsDefault) {
    Tool tool;

    const ToolResult result = tool.run({"controls", "reset", "--json"});

    ASSERT_EQ(result.status, 0) << result.errors;
    for (const nlohmann::json& control : result.json()) {
        EXPECT_TRUE(control.at("default").is_null() || control.at("value") == control.at("default")) << control;
    }
}

}  // namespace
}  // namespace oru
