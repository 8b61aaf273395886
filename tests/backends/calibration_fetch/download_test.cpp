#include "backends/calibration_fetch/download.hpp"
#include "backends/calibration_fetch/address.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "backends/calibration_fetch/HttpServer.hpp"
#include "doubles/TemporaryDirectory.hpp"
#include "unit/calibration/calibration_texts.hpp"

namespace oru {
namespace {

using doubles::TemporaryDirectory;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(CalibrationAddress, NamesTheCamerasFile) {
    const struct {
        const char* base;
        const char* address;
    } cases[] = {{"http://h/", "http://h/SN7.conf"},
                 {"http://h", "http://h/SN7.conf"},
                 {"http://h:8080/calib", "http://h:8080/calib/SN7.conf"},
                 {"http://h/SN7.conf", "http://h/SN7.conf"},
                 {"http://h/get?camera={serial}&x=1", "http://h/get?camera=7&x=1"},
                 {"http://h/get?x=1", "http://h/get?x=1"},
                 {"file:///usb", "file:///usb/SN7.conf"}};
    for (const auto& [base, address] : cases) {
        EXPECT_EQ(calibrationAddress(base, 7), address);
    }
}

TEST(CalibrationAddress, ShowsWhenItNamesAnotherCamera) {
    EXPECT_TRUE(namesAnotherCamera("http://h/SN8.conf", 7));
    EXPECT_TRUE(namesAnotherCamera("http://h/SN77.conf?x=/SN7.conf", 7));
    EXPECT_TRUE(namesAnotherCamera("file:/a/SN-7.conf", 7));
    for (const char* address : {"http://h/SN7.conf", "http://h/SN7.conf?v=2", "http://h/factory.conf",
                                "http://h/SN.conf", "http://SN8.conf/SN7.conf", "http://h/SNx8.conf", ""}) {
        EXPECT_FALSE(namesAnotherCamera(address, 7)) << address;
    }
}

TEST(Download, TakesAWholeTextOverHttp) {
    const struct {
        const char* name;
        std::string answer;
        Completeness completeness;
    } cases[] = {
        {"announced", httpAnswer("text\n"), Completeness::KNOWN},
        {"chunked", "HTTP/1.1 200 OK\r\ntransfer-ENCODING: chunked\r\n\r\n3\r\ntex\r\n2\r\nt\n\r\n0\r\n\r\n",
         Completeness::KNOWN},
        {"until the end", "HTTP/1.0 200 OK\r\n\r\ntext\n", Completeness::UNKNOWN},
    };
    for (const auto& [name, answer, completeness] : cases) {
        HttpServer server([&text = answer](const HttpConnection& client) { client.send(text); });
        ASSERT_TRUE(server.isReady());

        const Download result = downloadText(server.url("/a/SN7.conf"));

        EXPECT_EQ(result.defect, "") << name;
        EXPECT_EQ(result.text, "text\n") << name;
        EXPECT_EQ(result.completeness, completeness) << name;
        EXPECT_EQ(server.lastRequest(), "GET /a/SN7.conf HTTP/1.1");
    }
}

TEST(Download, FollowsARedirectionToHttpOnly) {
    const TemporaryDirectory folder;
    const std::string secret = folder.write("SN7.conf", "local\n");
    HttpServer target([](const HttpConnection& client) { client.send(httpAnswer("text\n")); });
    HttpServer toTarget([&](const HttpConnection& client) {
        client.send("HTTP/1.1 302 Found\r\nLocation: " + target.url("/x") + "\r\nContent-Length: 0\r\n\r\n");
    });
    HttpServer toFile([&](const HttpConnection& client) {
        client.send("HTTP/1.1 302 Found\r\nLocation: file://" + secret + "\r\nContent-Length: 0\r\n\r\n");
    });

    EXPECT_EQ(downloadText(toTarget.url("/")).text, "text\n");
    const Download refused = downloadText(toFile.url("/"));
    EXPECT_EQ(refused.text, "");
    EXPECT_NE(refused.defect, "");
}

TEST(Download, FailsOnWhatIsNoWholeText) {
    const std::string chunk = "100000\r\n" + std::string(0x100000, 'x') + "\r\n";
    const struct {
        const char* name;
        HttpServer::Handler handler;
    } cases[] = {
        {"404",
         [](const HttpConnection& client) { client.send("HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\nnone"); }},
        {"half", [](const HttpConnection& client) { client.send(httpAnswer("half", 8)); }},
        {"half a chunk",
         [](const HttpConnection& client) {
             client.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n8\r\nhalf");
         }},
        {"1 GB announced",
         [](const HttpConnection& client) {
             client.send(httpAnswer("x", std::size_t{1} << 30));
             client.stall();
         }},
        {"1 GB unannounced",
         [&](const HttpConnection& client) {
             client.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
             for (int i = 0; i < 1024 && client.send(chunk); ++i) {
             }
         }},
        {"no HTTP", [](const HttpConnection& client) { client.send("\x16\x03\x01garbage\r\n\r\n"); }},
        {"nothing", [](const HttpConnection&) {}},
        {"redirections without end",
         [](const HttpConnection& client) {
             client.send("HTTP/1.1 302 Found\r\nLocation: /again\r\nContent-Length: 0\r\n\r\n");
         }},
    };
    for (const auto& [name, handler] : cases) {
        HttpServer server(handler);
        const Download result = downloadText(server.url("/SN7.conf"));
        EXPECT_NE(result.defect, "") << name;
        EXPECT_EQ(result.text, "") << name;
    }
}

TEST(Download, GivesUpOnAServerThatStalls) {
    const struct {
        const char* name;
        const char* start;
    } cases[] = {{"silent", ""},
                 {"in the head", "HTTP/1.1 200 OK\r\nContent-"},
                 {"in the text", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nabc"}};
    for (const auto& [name, start] : cases) {
        HttpServer server([first = start](const HttpConnection& client) {
            client.send(first);
            client.stall();
        });
        const auto begin = steady_clock::now();

        const Download result = downloadText(server.url("/SN7.conf"), milliseconds(200));

        EXPECT_NE(result.defect, "") << name;
        // Room for a loaded machine; the limit itself is 200 ms.
        EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(4)) << name;
    }
}

TEST(Download, FailsWithoutAServerOrAKnownScheme) {
    for (const char* address :
         {"http://127.0.0.1:1/SN7.conf", "ftp://127.0.0.1/SN7.conf", "scp://h/x", "", "://", "x"}) {
        EXPECT_NE(downloadText(address, milliseconds(500)).defect, "") << address;
    }
}

TEST(Download, ReadsPlainLocalFilesOnly) {
    const TemporaryDirectory folder;
    folder.write("a b.conf", "text\n");
    folder.write("huge.conf", std::string(kCalibrationTextLimitBytes + 1, 'x'));
    ASSERT_EQ(::mkfifo(folder.path("pipe.conf").c_str(), 0600), 0);

    EXPECT_EQ(downloadText("file://" + folder.path("a%20b.conf")).text, "text\n");
    EXPECT_EQ(downloadText("file:" + folder.path("a%20b.conf")).text, "text\n");
    for (const char* name : {"huge.conf", "pipe.conf", "missing.conf", ""}) {
        EXPECT_NE(downloadText("file://" + folder.path(name)).defect, "") << name;
    }
}

}  // namespace
}  // namespace oru
