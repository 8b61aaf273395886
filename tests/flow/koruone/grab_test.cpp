#include <gtest/gtest.h>
#include <signal.h>

#include <thread>

#include "flow/koruone/tool.hpp"

namespace oru {
namespace {

const Arguments kCounters{"produced",   "delivered",     "sensor_gap", "overwritten", "late",
                          "queue_full", "decode_failed", "damaged",    "network",     "sender_busy"};

/// The smallest mode of camera 0, so that a loaded machine keeps up.
Arguments grabSmall(Arguments more) {
    Arguments arguments{"grab", "--id", "0", "--resolution", "HD600", "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

TEST(KoruoneGrab, PrintsEveryNumberOnTheLastLine) {
    Tool tool;

    const ToolResult result = tool.run(grabSmall({"--frames", "12"}));
    const nlohmann::json printed = result.json();

    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(printed.at("frames"), 12);
    EXPECT_EQ(printed.at("source_fps"), 30.0);
    EXPECT_GT(printed.at("seconds").get<double>(), 0.2) << "12 frames at 30 a second take longer";
    EXPECT_LT(printed.at("grab_fps").get<double>(), 60.0) << "twice the rate of the source";
    EXPECT_GT(printed.at("grab_p99_us").get<double>(), 0.0);
    EXPECT_LE(printed.at("grab_p50_us"), printed.at("grab_p99_us"));
    EXPECT_GT(printed.at("retrieve_p50_us").get<double>(), 0.0);
    EXPECT_LE(printed.at("retrieve_p50_us"), printed.at("retrieve_p99_us"));
    uint64_t lost = 0;
    for (const std::string& name : kCounters) {
        lost += name == "produced" || name == "delivered" ? 0 : printed.at("counters").at(name).get<uint64_t>();
    }
    EXPECT_EQ(printed.at("counters").at("delivered"), 12);
    EXPECT_EQ(printed.at("counters").at("produced").get<uint64_t>(), 12 + lost);
}

TEST(KoruoneGrab, WritesEveryNthFrameAndARowForEach) {
    Tool tool;
    const std::string out = tool.home.path("new/pictures");

    const ToolResult result = tool.run(grabSmall({"--frames", "8", "--every", "3", "--out", out}));

    ASSERT_EQ(result.status, 0) << result.errors;
    std::vector<DecodedPng> images;
    for (const char* name : {"frame_000000.png", "frame_000003.png", "frame_000006.png"}) {
        images.push_back(readPng(out + "/" + name));
        EXPECT_EQ(images.back().width, 960U) << name;
        EXPECT_EQ(images.back().height, 600U) << name;
        EXPECT_FALSE(images.back().gray);
        EXPECT_GT(images.back().spread(), 10.0) << "a flat picture";
    }
    EXPECT_NE(images[0].pixels, images[2].pixels) << "the same picture again";
    EXPECT_FALSE(std::filesystem::exists(out + "/frame_000001.png"));
    EXPECT_GT(readPng(out + "/contact_sheet.png").spread(), 10.0);
    const auto rows = readCsv(out + "/frames.csv");
    ASSERT_EQ(rows.size(), 9U);
    Arguments header{"index", "timestamp_ns"};
    header.insert(header.end(), kCounters.begin(), kCounters.end());
    EXPECT_EQ(rows[0], header);
    for (std::size_t i = 1; i < rows.size(); ++i) {
        ASSERT_EQ(rows[i].size(), header.size());
        EXPECT_EQ(rows[i][0], std::to_string(i - 1));
        EXPECT_EQ(rows[i][3], std::to_string(i)) << "delivered";
        EXPECT_TRUE(i == 1 || std::stoull(rows[i][1]) > std::stoull(rows[i - 1][1])) << "time stands still";
        uint64_t sum = 0;
        for (std::size_t column = 3; column < header.size(); ++column) {
            sum += std::stoull(rows[i][column]);
        }
        EXPECT_EQ(rows[i][2], std::to_string(sum)) << "produced is not delivered + lost";
    }
}

TEST(KoruoneGrab, DeliversTheViewTheSizeAndTheMemoryAskedFor) {
    struct Case {
        const char* view;
        const char* memory;
        bool gray;
    };
    for (const Case& each : {Case{"rectified", "gpu", false}, Case{"rectified_gray", "cpu", true},
                             Case{"unrectified", "cpu", false}, Case{"unrectified_gray", "gpu", true}}) {
        Tool tool;
        const std::string out = tool.home.path("out");

        const ToolResult result = tool.run(grabSmall(
            {"--frames", "1", "--view", each.view, "--size", "321x201", "--memory", each.memory, "--out", out}));
        const DecodedPng image = readPng(out + "/frame_000000.png");

        ASSERT_EQ(result.status, 0) << each.view << result.errors;
        EXPECT_EQ(image.width, 321U) << each.view;
        EXPECT_EQ(image.height, 201U) << each.view;
        EXPECT_EQ(image.gray, each.gray) << each.view;
        EXPECT_GT(image.spread(), 10.0) << each.view << " in " << each.memory << " memory is flat";
    }
}

TEST(KoruoneGrab, SaysWhyAnInputCannotBeOpened) {
    struct Case {
        Arguments arguments;
        const char* code;
    };
    const std::vector<Case> cases{
        {{"grab", "--serial", "99", "--frames", "1"}, "DEVICE_NOT_FOUND"},
        {{"grab", "--id", "77", "--frames", "1"}, "DEVICE_NOT_FOUND"},
        {{"grab", "--serial", "30010001", "--resolution", "HD2160"}, "RESOLUTION_NOT_SUPPORTED"},
        {{"grab", "--frames", "1", "--size", "4000x10"}, "RESOLUTION_NOT_SUPPORTED"},
    };
    for (const Case& each : cases) {
        Tool tool;

        const ToolResult result = tool.run(each.arguments);

        EXPECT_EQ(result.status, 1) << each.code;
        EXPECT_NE(result.errors.find(each.code), std::string::npos) << result.errors;
    }
}

TEST(KoruoneGrab, RefusesAWrongCommandLineWithTwo) {
    const std::vector<Arguments> lines{
        {},
        {"frobnicate"},
        {"--bad"},
        {"grab", "--frames", "0"},
        {"grab", "--frames", "1e3"},
        {"grab", "--frames", "-1"},
        {"grab", "--frames", "99999999999999999999"},
        {"grab", "--every", "0"},
        {"grab", "--view", "left"},
        {"grab", "--size", "0x5"},
        {"grab", "--size", "640"},
        {"grab", "--flip", "3"},
        {"grab", "--resolution", "HD1"},
        {"grab", "--id", "0", "--serial", "30010001"},
        {"grab", "--stream", "host:70000"},
        {"grab", "surplus"},
        {"imu", "--seconds", "nan"},
        {"controls"},
        {"controls", "get", "NOTHING"},
        {"controls", "set", "GAIN", "much"},
        {"controls", "set", "RANGE_SETTING_16", "5"},
        {"controls", "set", "GAIN", "1", "2"},
        {"controls", "roi", "1", "2", "3"},
        {"grab", "--set", "GAIN"},
        {"grab", "--set", "NOTHING=1"},
        {"grab", "--set", "GAIN=1,2"},
        {"calib"},
    };
    Tool tool;
    for (const Arguments& line : lines) {
        const ToolResult result = tool.run(line);

        const std::string text = line.empty() ? "" : line.front() + " " + line.back();
        EXPECT_EQ(result.status, 2) << text;
        EXPECT_FALSE(result.errors.empty()) << text;
        EXPECT_TRUE(result.output.empty()) << text << " wrote " << result.output;
    }
}

TEST(KoruoneGrab, OpensASizeThatNeedsHdrWithHdr) {
    Tool tool;

    const ToolResult result = tool.run(
        {"grab", "--serial", "31020002", "--resolution", "HD1800", "--frames", "1", "--view", "unrectified_gray"});

    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.errors.find("with HDR"), std::string::npos) << result.errors;
}

TEST(KoruoneGrab, FailsWhenWhatItMeasuredOrWroteIsLost) {
    Tool tool;
    const std::string file = tool.home.write("file", "");
    EXPECT_EQ(tool.run(grabSmall({"--frames", "1", "--out", file})).status, 1) << "a file is no directory";
    EXPECT_EQ(tool.run(grabSmall({"--frames", "1", "--out", file + "/below"})).status, 1);

    tool.outputFile = "/dev/full";
    const ToolResult full = tool.run(grabSmall({"--frames", "1"}));

    EXPECT_EQ(full.status, 1);
    EXPECT_NE(full.errors.find("No space left"), std::string::npos) << full.errors;
}

TEST(KoruoneGrab, StopsCleanlyWhenInterrupted) {
    Tool tool;
    const std::string out = tool.home.path("out");
    tool.start(grabSmall({"--frames", "100000", "--every", "5", "--out", out}));
    EXPECT_TRUE(waitForFile(out + "/frame_000000.png"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));

    tool.signal(SIGINT);
    const ToolResult result = tool.wait();

    EXPECT_EQ(result.status, 130) << result.errors;
    const uint64_t frames = result.json().at("frames");
    EXPECT_EQ(readCsv(out + "/frames.csv").size(), frames + 1);
    for (uint64_t frame = 0; frame < frames; frame += 5) {
        const std::string number = std::to_string(frame);
        const std::string name = "/frame_" + std::string(6 - number.size(), '0') + number + ".png";
        EXPECT_EQ(readPng(out + name).width, 960U) << name;
    }
    EXPECT_EQ(tool.run(grabSmall({"--frames", "1"})).status, 0) << "the camera was not given back";
}

TEST(KoruoneGrab, NamesTheCauseWhenTheCameraIsUnplugged) {
    Tool tool;
    tool.environment["KORU_VIRTUAL_BUS"] = tool.home.write("bus.ini",
                                                           "[camera 0]\nmodel = 30\nserial = 30010001\n"
                                                           "unplugged = on from 0.5\n");

    const ToolResult result = tool.run(grabSmall({"--frames", "100000", "--every", "100000"}));
    const nlohmann::json printed = result.json();

    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("FAILURE"), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find("unplugged"), std::string::npos) << result.errors;
    EXPECT_LT(printed.at("seconds").get<double>(), 15.0) << "2.5 s and what a busy machine adds";
    EXPECT_EQ(printed.at("counters").at("delivered"), printed.at("frames"));
}

TEST(KoruoneGrab, ShowsTheControlsThatItSets) {
    const auto brightness = [](const Arguments& controls) {
        Tool tool;
        const std::string out = tool.home.path("out");
        Arguments arguments{"--frames", "4", "--every", "3", "--view", "unrectified_gray", "--out", out};
        arguments.insert(arguments.end(), controls.begin(), controls.end());
        EXPECT_EQ(tool.run(grabSmall(arguments)).status, 0);
        return readPng(out + "/frame_000003.png").mean();
    };

    const double dark = brightness({"--set", "AEC_AGC=0", "--set", "GMSL_SETTING_13=1000", "--set", "gain=0"});
    const double light = brightness({"--set", "AEC_AGC=0", "--set", "EXPOSURE=60", "--set", "gain=0"});

    EXPECT_GT(dark, 0.0);
    EXPECT_GT(light, dark * 2.0);
}

}  // namespace
}  // namespace oru
