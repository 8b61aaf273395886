#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>

#include "backends/calibration_fetch/HttpServer.hpp"
#include "backends/calibration_fetch/calibration_fetch.hpp"
#include "doubles/LogCapture.hpp"
#include "doubles/ScopedEnvironment.hpp"
#include "doubles/SettingsRoot.hpp"
#include "doubles/TemporaryDirectory.hpp"
#include "oru/calibration.hpp"
#include "unit/calibration/calibration_texts.hpp"

namespace oru {
namespace {

using doubles::LogCapture;
using doubles::ScopedEnvironment;
using doubles::SettingsRoot;
using doubles::TemporaryDirectory;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int kSerial = 30010001;
const char* const kName = "SN30010001.conf";

class CalibrationFetchTest : public testing::Test {
protected:
    [[nodiscard]] bool fetch() const { return source->downloadCalibFile(folder.prefix(), kSerial); }

    /// What the camera reads afterwards.
    [[nodiscard]] float focalLength(const std::string& directory) const {
        ConfManager conf;
        openConfFile(directory, kSerial, conf);
        return conf.getValue("CAM_fhd:fx", 0.0F);
    }

    TemporaryDirectory folder;
    TemporaryDirectory system;
    SettingsRoot root{system.path("koru")};
    ScopedEnvironment noAddress{"KORU_CALIB_URL", nullptr};
    LogCapture log;
    std::unique_ptr<CalibrationSource> source = makeCalibrationFetch(&downloadText);
};

TEST_F(CalibrationFetchTest, StoresTheCamerasOwnCalibrationWhereTheSearchLooks) {
    source->offer(kSerial, kWholeCalibration);

    EXPECT_TRUE(fetch());

    EXPECT_EQ(folder.read(kName), kWholeCalibration);
    EXPECT_THAT(folder.list(), ElementsAre(kName));
    EXPECT_EQ(focalLength(folder.prefix()), 1066.5F);
    struct stat facts = {};
    ASSERT_EQ(::stat(folder.path(kName).c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777U, 0644U) << "every user of the camera reads it";
}

TEST_F(CalibrationFetchTest, TakesHomePrefixAndSystemDirectoryAsTheSearchDoes) {
    const ScopedEnvironment home("HOME", folder.path("home").c_str());
    std::filesystem::create_directories(folder.path("home"));
    source->offer(kSerial, kWholeCalibration);

    EXPECT_TRUE(source->downloadCalibFile("~/unit-", kSerial));
    EXPECT_TRUE(source->downloadCalibFile("", kSerial));

    EXPECT_EQ(folder.read("home/unit-SN30010001.conf"), kWholeCalibration);
    EXPECT_EQ(system.read("koru/settings/SN30010001.conf"), kWholeCalibration);
    EXPECT_EQ(focalLength(""), 1066.5F);
}

TEST_F(CalibrationFetchTest, ReplacesACorruptFile) {
    folder.write(kName, "garbage");
    source->offer(kSerial, kWholeCalibration);

    EXPECT_TRUE(fetch());

    EXPECT_EQ(folder.read(kName), kWholeCalibration);
}

TEST_F(CalibrationFetchTest, LeavesNothingBehindAndAnOlderFileAloneWhenTheTextIsNone) {
    folder.write(kName, "older");
    source->offer(kSerial, kMisc);

    EXPECT_FALSE(fetch());

    EXPECT_EQ(folder.read(kName), "older");
    EXPECT_THAT(folder.list(), ElementsAre(kName));
    EXPECT_THAT(log.records().back().text, HasSubstr("no section for any resolution"));
}

TEST_F(CalibrationFetchTest, LeavesNothingBehindWhereItCannotWrite) {
    source->offer(kSerial, kWholeCalibration);
    std::filesystem::create_directories(folder.path("taken/" + std::string(kName)));
    folder.write("file", "x");

    EXPECT_FALSE(source->downloadCalibFile(folder.path("missing/"), kSerial));
    EXPECT_FALSE(source->downloadCalibFile(folder.path("file/"), kSerial));
    EXPECT_FALSE(source->downloadCalibFile(folder.path("taken/"), kSerial));

    EXPECT_FALSE(std::filesystem::exists(folder.path("missing")));
    EXPECT_EQ(folder.read("file"), "x");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path("taken")), {}), 1);
}

TEST_F(CalibrationFetchTest, AsksNobodyWithoutAnOfferAndAnAddress) {
    EXPECT_FALSE(fetch());

    EXPECT_THAT(folder.list(), IsEmpty());
    EXPECT_THAT(log.records(), IsEmpty());
}

TEST_F(CalibrationFetchTest, WhatRecordingsAndStreamsCarryIsNeverACamerasOwn) {
    source->offerFrom(CalibrationOrigin::RECORDING, "a.rlx2", kSerial, kWholeCalibration);
    source->offerFrom(CalibrationOrigin::STREAM, "192.0.2.7:30000", kSerial, kWholeCalibration);

    EXPECT_EQ(source->text(kSerial), "");
    EXPECT_FALSE(fetch());
    EXPECT_TRUE(folder.list().empty());

    source->offerFrom(CalibrationOrigin::ATTACHED_CAMERA, "", kSerial, kWholeCalibration);
    EXPECT_TRUE(fetch());
}

TEST_F(CalibrationFetchTest, DownloadsFromTheAddressOnceNothingWasOffered) {
    HttpServer server([](const HttpConnection& client) { client.send(httpAnswer(kWholeCalibration)); });
    const ScopedEnvironment address("KORU_CALIB_URL", server.url("/calib/").c_str());

    EXPECT_TRUE(fetch());
    EXPECT_EQ(folder.read(kName), kWholeCalibration);
    EXPECT_EQ(server.lastRequest(), "GET /calib/SN30010001.conf HTTP/1.1");

    source->offer(5, kWholeCalibration);
    EXPECT_TRUE(source->downloadCalibFile(folder.prefix(), 5));
    EXPECT_EQ(server.lastRequest(), "GET /calib/SN30010001.conf HTTP/1.1") << "the offer made the network unnecessary";
}

TEST_F(CalibrationFetchTest, DownloadsWhenTheOfferIsNoCalibration) {
    const ScopedEnvironment address("KORU_CALIB_URL", ("file://" + system.prefix()).c_str());
    system.write(kName, kWholeCalibration);
    source->offer(kSerial, "garbage");

    EXPECT_TRUE(fetch());
    EXPECT_EQ(folder.read(kName), kWholeCalibration);
}

TEST_F(CalibrationFetchTest, StoresNothingOfAFaultyDownload) {
    const std::string half = kWholeCalibration.substr(0, kWholeCalibration.size() / 2);
    const struct {
        const char* name;
        std::string answer;
        const char* reason;
    } cases[] = {
        {"404", "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n", "404"},
        {"garbage", httpAnswer("\x89PNG\r\n\x1a\n"), "is no calibration"},
        {"page", httpAnswer("<html>[MISC]</html>\n"), "is no calibration"},
        {"half", httpAnswer(half, kWholeCalibration.size()), "No calibration of camera"},
        {"half without length", "HTTP/1.0 200 OK\r\n\r\n" + half, "is no calibration"},
        {"1 GB", httpAnswer("x", std::size_t{1} << 30), "too large"},
        {"another's", httpAnswer("[MISC]\nSerial_Number=1\nSensor_ID=1\n" + cameraSection("fhd") + kLens),
         "another camera"},
    };
    for (const auto& [name, answer, reason] : cases) {
        HttpServer server([&text = answer](const HttpConnection& client) { client.send(text); });
        const ScopedEnvironment address("KORU_CALIB_URL", server.url("/").c_str());

        EXPECT_FALSE(fetch()) << name;

        EXPECT_THAT(folder.list(), IsEmpty()) << name;
        ASSERT_FALSE(log.records().empty());
        EXPECT_THAT(log.records().back().text, HasSubstr(reason)) << name;
    }
}

TEST_F(CalibrationFetchTest, FetchesNothingFromAnAddressOfAnotherCamera) {
    HttpServer server([](const HttpConnection& client) { client.send(httpAnswer(kWholeCalibration)); });
    const ScopedEnvironment address("KORU_CALIB_URL", server.url("/SN30010002.conf").c_str());

    EXPECT_FALSE(fetch());

    EXPECT_EQ(server.lastRequest(), "");
    EXPECT_THAT(folder.list(), IsEmpty());
}

TEST_F(CalibrationFetchTest, RemembersTheLastOfferOfEachCameraUpToALimit) {
    EXPECT_EQ(source->text(kSerial), "");
    source->offer(kSerial, "first");
    source->offer(kSerial, "second");
    source->offer(kSerial, "");
    source->offer(kSerial, std::string(kCalibrationTextLimitBytes + 1, 'x'));
    EXPECT_EQ(source->text(kSerial), "second");

    for (int serial = 1; serial <= 64; ++serial) {
        source->offer(serial, std::to_string(serial));
    }
    EXPECT_EQ(source->text(kSerial), "") << "the oldest had to go";
    EXPECT_EQ(source->text(1), "1");
    EXPECT_EQ(source->text(64), "64");
}

TEST_F(CalibrationFetchTest, ServesManyThreadsWithWholeFilesOnly) {
    std::vector<std::thread> threads;
    std::atomic<int> stored{0};
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 20; ++i) {
                source->offer(kSerial, kWholeCalibration);
                source->offer(thread, kWholeCalibration);
                stored += fetch() ? 1 : 0;
                EXPECT_EQ(folder.read(kName), kWholeCalibration);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(stored, 80);
    EXPECT_THAT(folder.list(), ElementsAre(kName));
}

}  // namespace
}  // namespace oru
