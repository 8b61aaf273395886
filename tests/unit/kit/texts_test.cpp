#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "oru/text.hpp"
#include "oru/types.hpp"

namespace oru {
namespace {

TEST(ToString, GivesEveryCodeATextOfItsOwn) {
    const std::set<int> codes = {-4, -1, 0, 1, 2, 4, 5, 6, 7, 9, 10, 11, 13, 14, 17, 19, 21, 22, 26, 28, 31, 32};
    std::set<std::string> texts;
    for (int code = -10; code <= 40; ++code) {
        const std::string text = toString(static_cast<ERROR_CODE>(code)).get();
        if (codes.count(code) == 1) {
            EXPECT_TRUE(texts.insert(text).second) << text;
            EXPECT_NE(text, "Unknown error") << code;
        } else {
            EXPECT_EQ(text, "Unknown error") << code;
        }
    }
}

TEST(GetScaleMillimeter, KnowsEveryUnit) {
    EXPECT_EQ(getScaleMillimeter(UNIT_MILLIMETER), 1.0F);
    EXPECT_EQ(getScaleMillimeter(UNIT_CENTIMETER), 10.0F);
    EXPECT_EQ(getScaleMillimeter(UNIT_METER), 1000.0F);
    EXPECT_EQ(getScaleMillimeter(UNIT_INCH), 25.4F);
    EXPECT_EQ(getScaleMillimeter(UNIT_FOOT), 304.8F);
    EXPECT_EQ(getScaleMillimeter(static_cast<UNIT>(9)), 1.0F);
}

TEST(InputType, DescribesEachInputByItsTexts) {
    InputType input;
    EXPECT_FALSE(input.isSet());
    EXPECT_EQ(input.kind(), KIND_GMSL_ID);

    input.setFromFile("/a:b/c.rlx2");
    EXPECT_EQ(input.kind(), KIND_RLX_FILE);
    EXPECT_EQ(input.first(), "/a:b/c.rlx2");
    EXPECT_TRUE(input.isSet());
    input.setFromStream("::1");
    EXPECT_EQ(input.kind(), KIND_STREAM);
    EXPECT_EQ(input.first(), "::1:30000");
    input.setFromSerialNumber(4294967295U);
    EXPECT_EQ(input.kind(), KIND_GMSL_SERIAL);
    EXPECT_EQ(input.first(), "4294967295");
    input.setFromCameraID(-1);
    EXPECT_EQ(input.kind(), KIND_GMSL_ID);
    EXPECT_EQ(input.first(), "-1");
    EXPECT_TRUE(input.second().empty());

    const InputType raw(static_cast<InputKind>(9), "x", "y", false);
    EXPECT_EQ(raw.kind(), 9);
    EXPECT_EQ(raw.second(), "y");
    EXPECT_FALSE(raw.isSet());
}

template <class Value>
std::string streamed(const Value& value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

TEST(Texts, EnumerationsAreTheirNames) {
    EXPECT_EQ(streamed(GMSL), "GMSL");
    EXPECT_EQ(streamed(MODEL_MONO_2UM), "MODEL_MONO_2UM");
    EXPECT_EQ(streamed(MODEL{12}), "MODEL(12)");
    EXPECT_EQ(streamed(UNRECTIFIED_GRAY), "UNRECTIFIED_GRAY");
    EXPECT_EQ(streamed(RLX_MODE_10), "RLX_MODE_10");
    EXPECT_EQ(streamed(AEC_AGC_ROI), "AEC_AGC_ROI");
    EXPECT_EQ(streamed(static_cast<VIDEO_SETTINGS>(99)), "VIDEO_SETTINGS(99)");
    EXPECT_EQ(streamed(ControlKind::WRITE_ONLY), "WRITE_ONLY");
    EXPECT_EQ(streamed(RECORDING_CONDITION::CUT_OFF), "CUT_OFF");
    EXPECT_EQ(streamed(SensorsData::TemperatureData::SENSOR_LOCATION_3), "SENSOR_LOCATION_3");
    EXPECT_EQ(streamed(SUCCESS), "Success") << "a code is its sentence";
    for (int name = HD2160; name <= RESOLUTION_LAST; ++name) {
        EXPECT_EQ(streamed(static_cast<RESOLUTION>(name)).find('('), std::string::npos) << name;
    }
}

TEST(Texts, RecordsAreOneLineOfTheirFields) {
    EXPECT_EQ(streamed(Resolution{960, 600}), "960x600");
    EXPECT_EQ(streamed(Rect{1, 2, 3, 4}), "x=1 y=2 width=3 height=4");
    RecordingParameters recording;
    recording.bitrate = 4000;
    EXPECT_EQ(streamed(recording),
              "video_filename=\"myRecording.rlx2\" compression_mode=RLX_H264 bitrate=4000 "
              "target_fps=0 overwrite=false");
    SensorsData data;
    data.temperature.temperature_map[SensorsData::TemperatureData::SENSOR_LOCATION_IMU] = 31.5F;
    data.imu.vector_3 = {0.5F, -1.0F, 0.0F};
    const std::string text = streamed(data);
    EXPECT_NE(text.find("temperature={SENSOR_LOCATION_IMU=31.5} "), std::string::npos) << text;
    EXPECT_NE(text.find("vector_3=(0.5, -1, 0) "), std::string::npos) << text;
    EXPECT_NE(text.find("pose={orientation=(0, 0, 0, 1) translation=(0, 0, 0)}"), std::string::npos) << text;
    EXPECT_EQ(streamed(CameraDescription{}).find('\n'), std::string::npos);
    EXPECT_NE(streamed(InitParametersOne{}).find("requested_resolution=AUTO requested_fps=0 "), std::string::npos);
}

TEST(InputType, ReadsWhatAPersonWrites) {
    const struct {
        const char* text;
        InputKind kind;
        const char* first;
    } cases[] = {
        {"a.rlx2", KIND_RLX_FILE, "a.rlx2"},
        {"walk", KIND_RLX_FILE, "walk"},
        {"/data/2026:01/walk", KIND_RLX_FILE, "/data/2026:01/walk"},
        {"./host:30000", KIND_RLX_FILE, "./host:30000"},
        {"12:30:00.rlx", KIND_RLX_FILE, "12:30:00.rlx"},
        {"host:30010", KIND_STREAM, "host:30010"},
        {"10.0.0.7:1", KIND_STREAM, "10.0.0.7:1"},
        {"[::1]:65535", KIND_STREAM, "[::1]:65535"},
        {"[fe80::1%eth0]:30000", KIND_STREAM, "[fe80::1%eth0]:30000"},
        {"serial:30010001", KIND_GMSL_SERIAL, "30010001"},
        {"serial:4294967295", KIND_GMSL_SERIAL, "4294967295"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        InputType input;
        String refusal;
        ASSERT_EQ(InputType::fromText(c.text, input, refusal), SUCCESS) << refusal.get();
        EXPECT_EQ(input.kind(), c.kind);
        EXPECT_EQ(input.first(), c.first);
        EXPECT_TRUE(input.isSet());
    }
}

TEST(InputType, RefusesWhatIsNoInputWithASentence) {
    const struct {
        const char* text;
        const char* reason;
    } cases[] = {
        {"", "names no input"},
        {"serial:", "serial number"},
        {"serial:0", "serial number"},
        {"serial:-1", "serial"},
        {"serial:4294967296", "4294967295"},
        {"serial:12x", "serial"},
        {"host:", "port"},
        {"host:0", "port"},
        {"host:65536", "from 1 to 65535"},
        {"host:-1", "port"},
        {"host:4294997296", "port"},
        {"host:3000x", "port"},
        {"host: 30000", "port"},
        {":30000", "names no host"},
        {"fe80::1:30000", "[IPV6]:PORT"},
        {"[::1]", "names no host"},
        {"[host]:30000", "names no host"},
        {"[]:30000", "names no host"},
        {"::1", "[IPV6]:PORT"},
        {"12:30:00", "./NAME"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        InputType input;
        input.setFromCameraID(3);
        String refusal;
        EXPECT_EQ(InputType::fromText(c.text, input, refusal), INVALID_PARAMETER);
        EXPECT_NE(refusal.get().find(c.reason), std::string::npos) << refusal.get();
        EXPECT_EQ(input.first(), "3") << "stays as it was";
    }
}

}  // namespace
}  // namespace oru
