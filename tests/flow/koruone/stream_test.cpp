#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "flow/koruone/tool.hpp"

namespace oru {
namespace {

std::string freePort() {
    const int handle = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    EXPECT_EQ(::bind(handle, reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(::getsockname(handle, reinterpret_cast<sockaddr*>(&address), &length), 0);
    ::close(handle);
    return std::to_string(ntohs(address.sin_port));
}

/// A machine that sends its camera, and one that has neither a camera nor a calibration.
class KoruoneStream : public testing::Test {
protected:
    KoruoneStream() { receiver.environment["KORU_VIRTUAL_BUS"] = "off"; }
    ~KoruoneStream() override {
        if (running) {
            sender.signal(SIGKILL);
            (void)sender.wait();
        }
    }
    void startSender(const Arguments& more = {}) {
        Arguments arguments{"stream", "--port", port, "--codec", "h264"};
        const Arguments camera{"--serial", "30010001", "--resolution", "HD600"};
        arguments.insert(arguments.end(), camera.begin(), camera.end());
        arguments.insert(arguments.end(), more.begin(), more.end());
        sender.start(arguments);
        running = true;
        waitForOutput("in a player");
    }
    void waitForOutput(const std::string& text) const {
        for (int i = 0; i < 1000 && sender.home.read("output").find(text) == std::string::npos; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ASSERT_NE(sender.home.read("output").find(text), std::string::npos) << sender.home.read("errors");
    }
    ToolResult stopSender() {
        sender.signal(SIGINT);
        running = false;
        return sender.wait();
    }
    ToolResult receive(const Arguments& command) {
        Arguments arguments = command;
        arguments.insert(arguments.end(), {"--stream", address});
        return receiver.run(arguments);
    }

    const std::string port = freePort();
    const std::string address = "127.0.0.1:" + port;
    Tool sender;
    Tool receiver;
    bool running = false;
};

TEST_F(KoruoneStream, ServesEveryCommandOfAMachineWithoutCameraAndCalibration) {
    startSender();

    const ToolResult info = receive({"info", "--json"});
    const ToolResult grab = receive({"grab", "--frames", "30", "--every", "30", "--json"});
    const ToolResult imu = receive({"imu", "--seconds", "1", "--json"});
    const std::string file = receiver.home.path("received.rlx2");
    const ToolResult record = receive({"record", file, "--frames", "20"});

    ASSERT_EQ(info.status, 0) << info.errors;
    EXPECT_EQ(info.json().at("serial_number"), 30010001);
    ASSERT_EQ(grab.status, 0) << grab.errors;
    const nlohmann::json counters = grab.json().at("counters");
    EXPECT_EQ(counters.at("delivered"), 30);
    EXPECT_EQ(counters.at("damaged"), 0);
    EXPECT_EQ(counters.at("network"), 0);
    ASSERT_EQ(imu.status, 0) << imu.errors;
    EXPECT_GT(imu.json().at("packets"), 100);
    EXPECT_EQ(record.status, 0) << record.errors;
    EXPECT_EQ(receiver.run({"verify", file}).status, 0);
    EXPECT_FALSE(std::filesystem::exists(receiver.settings() + "SN30010001.conf"))
        << "a stream's calibration is no camera's of this machine";
}

TEST_F(KoruoneStream, TellsOnceASecondHowItGoesAndHowToReceiveIt) {
    startSender();
    ASSERT_EQ(receive({"grab", "--frames", "75", "--every", "75"}).status, 0);

    const ToolResult sent = stopSender();

    EXPECT_EQ(sent.status, 0) << sent.errors;
    for (const char* text : {"960 x 600, H.264", "srt://", "koruone grab --stream", "receivers", "frames/s", "Mbit/s",
                             "repeated", "backlog", "skipped"}) {
        EXPECT_NE(sent.output.find(text), std::string::npos) << text << " is not in\n" << sent.output;
    }
    EXPECT_NE(sent.output.find(" 1 receiver "), std::string::npos) << sent.output;
}

TEST_F(KoruoneStream, PlaysARecordingToTheNetworkAndEndsWithIt) {
    const std::string file = sender.home.path("a.rlx2");
    ASSERT_EQ(sender.run({"record", file, "--serial", "30010001", "--resolution", "HD600", "--frames", "40"}).status,
              0);

    const ToolResult sent = sender.run({"stream", "--file", file, "--port", port, "--codec", "h264", "--json"});

    EXPECT_EQ(sent.status, 0) << sent.errors;
    EXPECT_GT(sent.json().at("frames"), 20);
    EXPECT_EQ(sent.json().at("most_receivers"), 0);
}

TEST_F(KoruoneStream, ASenderThatPausesEndsNoCommandAndOneThatEndsIsAnEnd) {
    startSender();
    const std::string file = receiver.home.path("paused.rlx2");
    Tool imu;
    imu.environment["KORU_VIRTUAL_BUS"] = "off";
    const std::string table = imu.home.path("imu.csv");
    receiver.start({"record", file, "--stream", address});
    imu.start({"imu", "--seconds", "600", "--csv", table, "--json", "--stream", address});
    ASSERT_TRUE(waitForFile(file));
    ASSERT_TRUE(waitForFile(table));
    std::this_thread::sleep_for(std::chrono::seconds(1));

    sender.signal(SIGSTOP);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    sender.signal(SIGCONT);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_EQ(stopSender().status, 0);
    const ToolResult recorded = receiver.wait();
    const ToolResult sampled = imu.wait();

    EXPECT_EQ(recorded.status, 0) << recorded.errors;
    EXPECT_EQ(recorded.errors.find("NOT_READY"), std::string::npos) << recorded.errors;
    EXPECT_EQ(receiver.run({"verify", file}).status, 0);
    EXPECT_EQ(sampled.status, 0) << sampled.errors;
    EXPECT_GT(sampled.json().at("packets"), 100);
    EXPECT_EQ(sampled.json().at("stream").at("ended_by_sender"), true);
    EXPECT_EQ(sampled.json().at("stream").at("samples_dropped"), 0);
}

TEST_F(KoruoneStream, GivesAdviceThatFitsAStream) {
    const ToolResult nobody = receive({"grab", "--frames", "1"});
    EXPECT_EQ(nobody.status, 1);
    EXPECT_NE(nobody.errors.find("STREAM_SETUP_FAILED"), std::string::npos) << nobody.errors;

    startSender();
    receiver.start({"grab", "--frames", "100000", "--every", "100000", "--stream", address, "--patience", "1", "--out",
                    receiver.home.path("pictures")});
    ASSERT_TRUE(waitForFile(receiver.home.path("pictures/frame_000000.png")));
    sender.signal(SIGKILL);
    running = false;
    (void)sender.wait();
    const ToolResult lost = receiver.wait();

    EXPECT_EQ(lost.status, 1);
    EXPECT_NE(lost.errors.find("CAMERA_NOT_READY"), std::string::npos) << lost.errors;
    EXPECT_NE(lost.errors.find("no frame for "), std::string::npos) << "since when: " << lost.errors;
    EXPECT_NE(lost.errors.find("sender"), std::string::npos) << lost.errors;
    EXPECT_EQ(lost.errors.find("cable"), std::string::npos) << lost.errors;
    EXPECT_NE(lost.output.find("frames in"), std::string::npos) << "the numbers are printed all the same";
}

TEST_F(KoruoneStream, TellsWhatIsWrongWithTheKeyAndWhatWasWrittenBlindly) {
    sender.environment["KORU_STREAM_PASSPHRASE"] = "the-viewing-key";
    sender.environment["KORU_STREAM_CONTROL_PASSPHRASE"] = "the-control-key";
    startSender();
    const ToolResult keyless = receive({"info"});
    receiver.environment["KORU_STREAM_PASSPHRASE"] = "another-viewing-key";
    const ToolResult wrong = receive({"info"});
    receiver.environment["KORU_STREAM_PASSPHRASE"] = "the-viewing-key";
    receiver.environment["KORU_STREAM_CONTROL_PASSPHRASE"] = "the-control-key";
    const ToolResult written = receive({"controls", "set", "SETTING_12", "1"});

    for (const auto& [result, reason] :
         {std::pair(keyless, "the sender wants a key"), {wrong, "is not the sender's"}}) {
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.errors.find(reason), std::string::npos) << result.errors;
        EXPECT_NE(result.errors.find("ask who runs the sender"), std::string::npos) << result.errors;
        EXPECT_EQ(result.errors.find("firewall"), std::string::npos) << result.errors;
    }
    EXPECT_EQ(written.status, 0) << written.errors;
    EXPECT_NE(written.output.find("SETTING_12 1 (written"), std::string::npos) << written.output;
}

TEST_F(KoruoneStream, RefusesAWrongCommandLine) {
    for (const Arguments& wrong : std::vector<Arguments>{{"stream", "--codec", "mpeg2"},
                                                         {"stream", "--port", "70000"},
                                                         {"stream", "--port", "0"},
                                                         {"stream", "--bitrate", "10"},
                                                         {"stream", "--seconds", "-1"},
                                                         {"grab", "--stream", "127.0.0.1:70000"},
                                                         {"grab", "--stream", "127.0.0.1", "--patience", "-1"},
                                                         {"grab", "--stream", "127.0.0.1", "--patience", "nan"},
                                                         {"grab", "--stream", ":30000"}}) {
        EXPECT_EQ(receiver.run(wrong).status, 2) << wrong[1] << ' ' << wrong[2];
    }
}

}  // namespace
}  // namespace oru
