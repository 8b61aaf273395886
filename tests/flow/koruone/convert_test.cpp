#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <numbers>
#include <sstream>

#include "flow/koruone/tool.hpp"
#include "oru/RecordedFile.hpp"
#include "oru/calibration.hpp"

namespace oru {
namespace {

TEST(KoruoneConvert, WritesTheOtherForms) {
    Tool tool;
    const std::string path = recordShort(tool, "raw");
    const uint64_t frames = framesPlayed(tool, path);
    const std::string other = tool.home.path("b.rlx2");

    EXPECT_EQ(tool.run({"convert", path, other, "--compression", "ffv1"}).status, 0);
    EXPECT_EQ(framesPlayed(tool, other), frames);
    EXPECT_EQ(tool.run({"convert", path, tool.home.path("c.mp4")}).status, 0);
    EXPECT_EQ(tool.home.read("c.mp4").substr(4, 4), "ftyp");
    EXPECT_EQ(tool.run({"convert", path, other}).status, 1) << "an existing output";
    EXPECT_EQ(tool.run({"convert", path, tool.home.path("d.xyz")}).status, 2);
    EXPECT_EQ(tool.run({"convert", path, path, "--overwrite"}).status, 1) << "onto itself";
    for (const Arguments& ignored : std::vector<Arguments>{{tool.home.path("e.rlx2"), "--view", "rectified"},
                                                           {tool.home.path("e.mp4"), "--pictures", "png"},
                                                           {tool.home.path("e"), "--compression", "raw"},
                                                           {tool.home.path("e"), "--from", "1000"},
                                                           {tool.home.path("e"), "--to", "soon"}}) {
        Arguments arguments{"convert", path};
        arguments.insert(arguments.end(), ignored.begin(), ignored.end());
        EXPECT_EQ(tool.run(arguments).status, 2) << ignored[1];
    }
}

/// The value behind "key:" in a simple YAML text, a list as its numbers.
std::vector<double> yamlNumbers(const std::string& yaml, const std::string& key) {
    std::vector<double> numbers;
    const std::size_t at = yaml.find("\n" + key + ":");
    const std::size_t indented = yaml.find("  " + key + ":");
    const std::size_t begin = at != std::string::npos ? at : indented;
    if (begin == std::string::npos) {
        return numbers;
    }
    const std::size_t value = yaml.find(':', begin) + 1;
    const bool list = yaml.find('[', value) < yaml.find('\n', value);
    std::string text = yaml.substr(value, yaml.find_first_of(list ? "]" : "\n#", value) - value);
    for (char& letter : text) {
        letter = letter == '[' || letter == ',' || letter == '\n' ? ' ' : letter;
    }
    std::istringstream words(text);
    for (double number = 0.0; words >> number;) {
        numbers.push_back(number);
    }
    return numbers;
}

TEST(KoruoneConvert, EurocLayoutGivesTimesSamplesAndLensBackExactly) {
    Tool tool;
    const std::string path = recordShort(tool, "lossless");
    const std::string directory = tool.home.path("set");

    const ToolResult converted = tool.run({"convert", path, directory, "--json"});

    ASSERT_EQ(converted.status, 0) << converted.errors;
    RecordedFile recording;
    ASSERT_EQ(recording.open(path), SUCCESS);
    const auto images = readCsv(directory + "/mav0/cam0/data.csv");
    const auto samples = readCsv(directory + "/mav0/imu0/data.csv");
    std::vector<RecordedSample> recorded;
    ASSERT_EQ(images.size(), static_cast<std::size_t>(recording.frameCount()) + 1);
    for (int frame = 0; frame < recording.frameCount(); ++frame) {
        const auto& row = images[static_cast<std::size_t>(frame) + 1];
        EXPECT_EQ(std::stoull(row[0]), recording.frameTime(frame));
        const DecodedPng image = readPng(directory + "/mav0/cam0/data/" + row[1]);
        Mat packed;
        ASSERT_EQ(recording.readFrame(packed), SUCCESS);
        ASSERT_EQ(image.pixels.size(), 960U * 600U);
        const auto* pixels = packed.getPtr<unsigned char>(CPU);
        std::size_t different = 0;
        for (std::size_t i = 0; i < image.pixels.size(); ++i) {
            different += image.pixels[i] != pixels[2 * i] ? 1 : 0;
        }
        EXPECT_EQ(different, 0U) << "frame " << frame;
        for (const RecordedSample& sample : recording.samplesOf(frame)) {
            recorded.push_back(sample);
        }
    }
    ASSERT_EQ(samples.size(), recorded.size() + 1);
    for (std::size_t i = 0; i < recorded.size(); ++i) {
        const auto& row = samples[i + 1];
        EXPECT_EQ(std::stoull(row[0]), recorded[i].timestamp);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double degrees = std::stod(row[1 + axis]) * 180.0 / std::numbers::pi;
            EXPECT_EQ(static_cast<float>(degrees), recorded[i].angular_velocity[axis]) << i;
            EXPECT_EQ(std::stof(row[4 + axis]), recorded[i].linear_acceleration[axis]) << i;
        }
    }
    const std::string camera = tool.home.read("set/mav0/cam0/sensor.yaml");
    const std::string inertial = tool.home.read("set/mav0/imu0/sensor.yaml");
    const CalibrationFile calibration = parseCalibration(recording.facts().calibration_text.get());
    const auto lens = calibration.lens(*findMode(recording.facts().model, 960, 600));
    ASSERT_TRUE(lens.has_value());
    const std::vector<double> pinhole = yamlNumbers(camera, "intrinsics");
    ASSERT_EQ(pinhole.size(), 4U) << camera;
    EXPECT_NEAR(pinhole[0], lens->fx, 1e-3);
    EXPECT_NEAR(pinhole[3], lens->cy, 1e-3);
    EXPECT_EQ(yamlNumbers(camera, "distortion_coefficients"),
              std::vector<double>(lens->distortion.begin(), lens->distortion.end()));
    const std::vector<double> pose = yamlNumbers(camera, "data");
    ASSERT_EQ(pose.size(), 16U) << camera;
    const Transform& toSensor = recording.facts().imu_to_camera;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        double along = 0.0;  // of the camera's axes: the transposed rotation turns the offset into them
        for (std::size_t row = 0; row < 3; ++row) {
            along += static_cast<double>(toSensor(row, axis)) * static_cast<double>(toSensor(row, 3)) / 1000.0;
        }
        EXPECT_NEAR(pose[4 * axis + 3], along, 1e-9);
        EXPECT_EQ(pose[5 * axis], 1.0);
    }
    EXPECT_EQ(yamlNumbers(camera, "rate_hz"), std::vector<double>{30.0});
    EXPECT_EQ(yamlNumbers(inertial, "rate_hz"), std::vector<double>{400.0});
    EXPECT_NEAR(yamlNumbers(inertial, "gyroscope_noise_density").at(0), 0.004721 * std::numbers::pi / 180.0, 1e-8);
    EXPECT_NEAR(yamlNumbers(inertial, "accelerometer_random_walk").at(0), 0.0042, 1e-6);
}

TEST(KoruoneConvert, DataSetIsFootageForAVirtualCamera) {
    Tool tool;
    const std::string path = recordShort(tool, "h264");
    const std::string directory = tool.home.path("set");
    ASSERT_EQ(tool.run({"convert", path, directory}).status, 0);
    Tool player;
    player.environment["KORU_VIRTUAL_BUS"] = player.home.write(
        "bus.ini", "[camera 0]\nmodel = 30\nserial = 30010009\nsource = footage\nfootage = " + directory + "\n");

    const ToolResult played = player.run({"imu", "--resolution", "HD600", "--seconds", "1", "--json"});

    ASSERT_EQ(played.status, 0) << played.errors;
    EXPECT_GT(played.json().at("packets"), 100);
    EXPECT_NEAR(played.json().at("interval_median_ms").get<double>(), 2.5, 0.1);
}

TEST(KoruoneConvert, TakesAPartOfTheFrames) {
    Tool tool;
    const std::string path = recordShort(tool, "raw");
    RecordedFile recording;
    ASSERT_EQ(recording.open(path), SUCCESS);
    ASSERT_GT(recording.frameCount(), 8);
    const auto framesOf = [&](const Arguments& part) {
        Arguments arguments{"convert", path, tool.home.path("part"), "--overwrite", "--json"};
        arguments.insert(arguments.end(), part.begin(), part.end());
        const ToolResult result = tool.run(arguments);
        EXPECT_EQ(result.status, 0) << result.errors;
        return readCsv(tool.home.path("part/mav0/cam0/data.csv"));
    };
    const std::string third = std::to_string(recording.frameTime(3));

    const auto numbered = framesOf({"--from", "3", "--to", "6"});
    const auto timed = framesOf({"--from", third, "--to", third});
    const auto early = framesOf({"--to", "0.05s"});
    const auto slow = framesOf({"--fps", "10"});

    ASSERT_EQ(numbered.size(), 5U);
    EXPECT_EQ(numbered[1][0], third);
    ASSERT_EQ(timed.size(), 2U);
    EXPECT_EQ(timed[1][0], third);
    for (std::size_t i = 1; i < early.size(); ++i) {
        EXPECT_LE(std::stoull(early[i][0]), recording.frameTime(0) + 50'000'000);
    }
    for (std::size_t i = 2; i < slow.size(); ++i) {
        EXPECT_GE(std::stoull(slow[i][0]) - std::stoull(slow[i - 1][0]), 80'000'000U);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(tool.home.path("part/mav0/cam0/data")), {}),
              static_cast<std::ptrdiff_t>(slow.size()) - 1)
        << "pictures of an older set are left";
}

TEST(KoruoneConvert, KeepsTheSamplesOfFramesThatARateLeavesOut) {
    Tool tool;
    const std::string path = recordShort(tool, "raw");
    const std::string slow = tool.home.path("slow.rlx2");

    ASSERT_EQ(tool.run({"convert", path, slow, "--fps", "10"}).status, 0);

    RecordedFile all;
    RecordedFile some;
    ASSERT_EQ(all.open(path), SUCCESS);
    ASSERT_EQ(some.open(slow), SUCCESS);
    ASSERT_LT(some.frameCount(), all.frameCount() / 2 + 1);
    std::vector<Timestamp> kept;
    for (int frame = 0; frame < some.frameCount(); ++frame) {
        for (const RecordedSample& sample : some.samplesOf(frame)) {
            kept.push_back(sample.timestamp);
        }
    }
    std::vector<Timestamp> recorded;
    for (int frame = 0; frame <= all.frameAt(some.frameTime(some.frameCount() - 1)); ++frame) {
        for (const RecordedSample& sample : all.samplesOf(frame)) {
            recorded.push_back(sample.timestamp);
        }
    }
    EXPECT_EQ(kept, recorded);
}

TEST(KoruoneConvert, WritesViewsAsPicturesNamedByTime) {
    Tool tool;
    const std::string path = recordShort(tool, "raw");
    const std::string folder = tool.home.path("pictures");

    const ToolResult png = tool.run({"convert", path, folder, "--pictures", "png", "--to", "2", "--size", "480x480",
                                     "--view", "rectified", "--json"});
    ASSERT_EQ(png.status, 0) << png.errors;
    EXPECT_EQ(png.json().at("width"), 480);
    EXPECT_EQ(png.json().at("height"), 300);
    RecordedFile recording;
    ASSERT_EQ(recording.open(path), SUCCESS);
    const std::string name = folder + "/" + std::to_string(recording.frameTime(1));
    const DecodedPng exact = readPng(name + ".png");
    ASSERT_EQ(exact.width, 480U);
    EXPECT_FALSE(exact.gray);

    ASSERT_EQ(tool.run({"convert", path, folder, "--pictures", "jpg", "--to", "2", "--size", "480x300", "--view",
                        "rectified", "--overwrite"})
                  .status,
              0);
    EXPECT_FALSE(std::filesystem::exists(name + ".png")) << "the older set is left";
    const std::string decoded = tool.home.path("decoded.png");
    ASSERT_EQ(std::system(("ffmpeg -v error -y -i " + name + ".jpg " + decoded).c_str()), 0);
    const DecodedPng lossy = readPng(decoded);
    ASSERT_EQ(lossy.pixels.size(), exact.pixels.size());
    double sum = 0.0;
    for (std::size_t i = 0; i < lossy.pixels.size(); ++i) {
        sum += std::abs(static_cast<double>(lossy.pixels[i]) - static_cast<double>(exact.pixels[i]));
    }
    EXPECT_LT(sum / static_cast<double>(lossy.pixels.size()), 5.0);
    EXPECT_NEAR(lossy.mean(), exact.mean(), 0.5);
}

TEST(KoruoneInfo, DescribesARecordingAndItsDamage) {
    Tool tool;
    const std::string path = recordShort(tool, "h264");
    Tool elsewhere;
    elsewhere.environment["KORU_VIRTUAL_BUS"] = "off";

    const ToolResult whole = elsewhere.run({"info", path, "--json"});
    const ToolResult text = elsewhere.run({"info", path, "--quick"});
    shorten(path, std::filesystem::file_size(path) / 3);
    const ToolResult cut = elsewhere.run({"info", path, "--json"});

    ASSERT_EQ(whole.status, 0) << whole.errors;
    const nlohmann::json recording = whole.json().at("recording");
    EXPECT_GT(recording.at("frames"), 8);
    EXPECT_GT(recording.at("samples"), recording.at("frames"));
    EXPECT_EQ(recording.at("damaged"), 0);
    EXPECT_EQ(recording.at("compression"), "h264");
    EXPECT_NEAR(recording.at("seconds").get<double>(), recording.at("frames").get<double>() / 30.0, 0.5);
    EXPECT_TRUE(recording.at("calibration").get<bool>());
    EXPECT_EQ(whole.json().at("serial_number"), 30010001);
    for (const char* line : {"frames  ", "start  ", "duration  ", "h264, 960x600", "not counted", "of camera 30010001",
                             "rectified at 960x600"}) {
        EXPECT_NE(text.output.find(line), std::string::npos) << line << " is not in\n" << text.output;
    }
    EXPECT_EQ(cut.status, 3) << cut.errors;
    EXPECT_EQ(cut.json().at("recording").at("condition"), "is cut off") << cut.output;
    EXPECT_TRUE(cut.json().at("recording").at("samples").is_null()) << "not counted, and not 0";
}

/// What ffprobe tells of a file's colours and says against the file.
std::string probe(Tool& tool, const std::string& file) {
    const std::string out = tool.home.path("probe");
    const std::string fields = "color_range,color_space,chroma_location,color_primaries,color_transfer";
    const std::string command = "ffprobe -hide_banner -v warning -of default=nw=1 -show_entries stream=" + fields +
                                " " + file + " > " + out + " 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << file;
    return tool.home.read("probe");
}

TEST(KoruoneColours, EveryFileTellsThemToPlayers) {
    Tool tool;
    for (const char* compression : {"raw", "h264", "h265", "lossless", "ffv1"}) {
        const std::string path = tool.home.path(std::string(compression) + ".rlx2");
        ASSERT_EQ(
            tool.run({"record", path, "--resolution", "HD600", "--frames", "3", "--compression", compression}).status,
            0);
        EXPECT_EQ(probe(tool, path),
                  "color_range=tv\ncolor_space=smpte170m\ncolor_transfer=bt709\ncolor_primaries=bt709\n"
                  "chroma_location=left\n")
            << compression;
    }
    for (const char* codec : {"h264", "h265"}) {
        const std::string video = tool.home.path(std::string(codec) + ".mp4");
        ASSERT_EQ(tool.run({"convert", tool.home.path("raw.rlx2"), video, "--compression", codec}).status, 0);
        const std::string bytes = tool.home.read(std::string(codec) + ".mp4");
        const std::size_t box = bytes.find("colrnclx");
        ASSERT_NE(box, std::string::npos) << codec;
        EXPECT_EQ(bytes.substr(box + 8, 6), std::string("\0\1\0\1\0\6", 6)) << codec;
        EXPECT_NE(probe(tool, video).find("color_space=smpte170m"), std::string::npos) << codec;
    }
}

TEST(KoruoneColours, PlayerShowsThoseOfTheView) {
    if (std::system("command -v mpv > /dev/null") != 0) {
        GTEST_SKIP() << "mpv is not installed";
    }
    Tool tool;
    const std::string path = tool.home.path("a.rlx2");
    ASSERT_EQ(tool.run({"record", path, "--resolution", "HD600", "--frames", "3", "--compression", "ffv1"}).status, 0);
    ASSERT_EQ(tool.run({"convert", path, tool.home.path("view"), "--pictures", "png", "--to", "0"}).status, 0);
    const std::string folder = tool.home.path("shown");
    const std::string command = "HOME=" + tool.home.path("") +
                                " mpv --no-config --really-quiet --frames=1 --vo=image " +
                                "--vo-image-format=png --vo-image-outdir=" + folder + " " + path + " > /dev/null 2>&1";

    ASSERT_EQ(std::system(command.c_str()), 0);

    RecordedFile recording;
    ASSERT_EQ(recording.open(path), SUCCESS);
    const DecodedPng view = readPng(tool.home.path("view/" + std::to_string(recording.frameTime(0)) + ".png"));
    const DecodedPng shown = readPng(folder + "/00000001.png");
    ASSERT_EQ(shown.pixels.size(), view.pixels.size());
    std::array<double, 3> sums{};
    for (std::size_t i = 0; i < view.pixels.size(); ++i) {
        sums[i % 3] += static_cast<double>(shown.pixels[i]) - static_cast<double>(view.pixels[i]);
    }
    for (const double sum : sums) {
        EXPECT_LT(std::abs(sum) / (static_cast<double>(view.pixels.size()) / 3.0), 2.0);
    }
}

}  // namespace
}  // namespace oru
