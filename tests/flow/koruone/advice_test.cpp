#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "flow/koruone/tool.hpp"

namespace oru {
namespace {

/// What the tool says itself: its sentences without the notice that a camera is virtual.
std::vector<std::string> sentences(const std::string& errors) {
    std::vector<std::string> lines;
    std::istringstream text(errors);
    for (std::string line; std::getline(text, line);) {
        if (line.find(" is virtual: ") == std::string::npos) {
            lines.push_back(line);
        }
    }
    return lines;
}

/// A tool as it is called at a shell, without a variable that changes its log.
struct Shell : Tool {
    Shell() {
        environment.erase("KORU_SDK_LOGGER_LEVEL");
        unprivileged = true;
    }
};

struct Advice {
    Arguments arguments;
    int status;
    std::string says;     ///< the reason
    std::string advises;  ///< what to do
    const char* misleading = "cable";
};

void expectOneTrueSentence(Tool& tool, const Advice& sample) {
    const ToolResult result = tool.run(sample.arguments);
    std::string command;
    for (const std::string& word : sample.arguments) {
        command += " " + word;
    }
    EXPECT_EQ(result.status, sample.status) << command << '\n' << result.errors;
    EXPECT_EQ(sentences(result.errors).size(), 1U) << command << '\n' << result.errors;
    EXPECT_NE(result.errors.find(sample.says), std::string::npos) << command << '\n' << result.errors;
    EXPECT_NE(result.errors.find(sample.advises), std::string::npos) << command << '\n' << result.errors;
    EXPECT_EQ(result.errors.find(sample.misleading), std::string::npos) << command << '\n' << result.errors;
}

TEST(KoruoneAdvice, TellsWhatIsWrongWithEachFile) {
    Shell tool;
    const std::string missing = tool.home.path("missing.rlx2");
    const std::string empty = tool.home.write("empty.rlx2", "");
    const std::string text = tool.home.write("text.rlx2", "no recording at all");
    const std::string secret = tool.home.write("secret.rlx2", "not to be read");
    std::filesystem::permissions(secret, std::filesystem::perms::none);
    const std::string folder = tool.home.path("");
    const Advice cases[] = {
        {{"play", missing}, 1, missing + " does not exist", "check its name"},
        {{"play", folder}, 1, "is not a file", "name a file"},
        {{"play", empty}, 1, "is empty", "name another recording"},
        {{"play", text}, 1, "is not an RLX recording", "'koruone record'"},
        {{"play", secret}, 1, "cannot be read", "may read it"},
        {{"grab", "--file", missing}, 1, "does not exist", "check its name"},
        {{"convert", empty, tool.home.path("a.mp4")}, 1, "is empty", "name another recording"},
        {{"repair", missing}, 1, "does not exist", "check its name", "left as it is"},
        {{"verify", missing}, 1, "does not exist", "check its name"},
    };
    for (const Advice& sample : cases) {
        expectOneTrueSentence(tool, sample);
    }
}

TEST(KoruoneAdvice, TellsWhyNothingCanBeRecorded) {
    Shell tool;
    const std::string locked = tool.home.path("locked");
    std::filesystem::create_directory(locked);
    std::filesystem::permissions(locked, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    const Arguments camera{"--resolution", "HD600", "--frames", "300", "--compression", "raw"};
    const auto record = [&](const std::string& path) {
        Arguments arguments{"record", path};
        arguments.insert(arguments.end(), camera.begin(), camera.end());
        return arguments;
    };

    expectOneTrueSentence(
        tool, {record(locked + "/a.rlx2"), 1, "Permission denied", "directory that can be written", "controls list"});
    expectOneTrueSentence(tool, {record(tool.home.path("none/a.rlx2")), 1, "No such file", "another file"});
    expectOneTrueSentence(tool, {record(tool.home.path("a.mp4")), 2, "record to .rlx2", "koruone convert"});
    tool.largestFile = 8'000'000;
    expectOneTrueSentence(tool, {record(tool.home.path("b.rlx2")), 1, "File too large", "make room"});
}

TEST(KoruoneAdvice, TellsWhatTheCameraOffers) {
    Shell tool;
    const std::string file = tool.home.write("file", "");
    const Advice cases[] = {
        {{"controls", "roi", "1900", "0", "100", "100"}, 2, "does not lie within the image of 1920x1200", "X Y WIDTH"},
        {{"controls", "set", "GAIN", "400"}, 2, "GAIN takes from 0 to 100", "not 400"},
        {{"grab", "--set", "RANGE_SETTING_16=900,100"}, 2, "a minimum and a maximum", "RANGE_SETTING_16"},
        {{"controls", "frob"},
         2,
         "'frob' is not a command of 'koruone controls'",
         "list, reset, get, roi, set",
         "subcommand is required"},
        {{"info", "--serial", "30010001", "--resolution", "HD2160"},
         1,
         "has no such size",
         "HD600 (960x600)",
         "reboot"},
        {{"info", "--id", "0", "--resolution", "HD2160"}, 1, "has no size 3840x2160", "HD600 (960x600)", "reboot"},
        {{"info", "--id", "77"}, 1, "no attached camera has the id 77", "koruone devices"},
        {{"info", "--settings", file}, 2, "is a file", "name the directory"},
        {{"reboot", "--id", "1"}, 2, "'--id' is not an option of 'koruone reboot'", "reboot --help", "argument"},
    };
    for (const Advice& sample : cases) {
        expectOneTrueSentence(tool, sample);
    }
}

TEST(KoruoneAdvice, TellsWhatIsWrongWithTheBusFile) {
    Shell tool;
    const std::string bus = tool.home.write("bus.ini", "[camera 0]\nmodel = 12\n");
    tool.environment["KORU_VIRTUAL_BUS"] = bus;

    expectOneTrueSentence(tool, {{"devices"}, 1, bus, "correct the file"});
    expectOneTrueSentence(tool, {{"info"}, 1, bus, "correct the file"});
    expectOneTrueSentence(tool, {{"info", "--serial", "30010001"}, 1, bus, "correct the file"});
}

/// A UDP socket that holds a port.
class HeldPort {
public:
    HeldPort() : handle(::socket(AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        socklen_t length = sizeof(address);
        (void)::bind(handle, reinterpret_cast<sockaddr*>(&address), length);
        (void)::getsockname(handle, reinterpret_cast<sockaddr*>(&address), &length);
        number = ntohs(address.sin_port);
    }
    ~HeldPort() { ::close(handle); }
    HeldPort(const HeldPort&) = delete;
    HeldPort& operator=(const HeldPort&) = delete;

    [[nodiscard]] std::string text() const { return std::to_string(number); }

private:
    int handle;
    int number = 0;
};

bool systemReserves(int port) {
    int first = 1024;
    std::ifstream("/proc/sys/net/ipv4/ip_unprivileged_port_start") >> first;
    return port < first;
}

TEST(KoruoneAdvice, TellsWhyThereIsNoStream) {
    Shell tool;
    const HeldPort port;
    const Arguments stream{"stream", "--resolution", "HD600", "--seconds", "1", "--port", port.text()};
    expectOneTrueSentence(tool, {stream, 1, "uses UDP port " + port.text(), "another port", "firewall"});
    if (systemReserves(80)) {
        expectOneTrueSentence(tool, {{"stream", "--resolution", "HD600", "--seconds", "1", "--port", "80"},
                                     1,
                                     "reserves UDP port 80",
                                     "from 1024 on",
                                     "firewall"});
    }
    tool.environment["KORU_STREAM_PASSPHRASE"] = "short";
    expectOneTrueSentence(tool, {stream, 1, "must have 10 to", "set a key of such a length", "firewall"});
    expectOneTrueSentence(tool, {{"info", "--stream", "127.0.0.1"}, 1, "must have 10 to", "set a key", "firewall"});
    tool.environment["KORU_STREAM_PASSPHRASE"] = "one and the same key";
    tool.environment["KORU_STREAM_CONTROL_PASSPHRASE"] = "one and the same key";
    expectOneTrueSentence(tool, {stream, 1, "are the same", "set two different keys", "firewall"});
}

TEST(KoruoneAdvice, RefusesWhatTheCommandWouldNotHeed) {
    Shell tool;
    const std::string file = tool.home.write("a.rlx2", "anything");
    const std::string same = tool.home.path("same");
    const Arguments cases[] = {
        {"grab", "--file", ""},
        {"grab", "--out", ""},
        {"play", ""},
        {"info", "--id", "-1"},
        {"grab", "--file", file, "--resolution", "HD600"},
        {"grab", "--stream", "127.0.0.1", "--fps", "15"},
        {"grab", "--file", file, "--set", "GAIN=3"},
        {"grab", "--realtime"},
        {"grab", "--overwrite"},
        {"controls", "list", "--file", file},
        {"imu", "--csv", same, "--plot", same},
        {"record", tool.home.path("b.rlx2"), "--compression", "raw", "--bitrate", "4000"},
        {"record", tool.home.path("b.rlx2"), "--seconds", "0"},
        {"calib", file, "--settings", tool.home.path("")},
        {"devices", "-v", "-q"},
        {"devices", "--log-level", "loud"},
        {"frob"},
        {},
    };
    for (const Arguments& arguments : cases) {
        const ToolResult result = tool.run(arguments);
        const std::string command = arguments.empty() ? "" : arguments[0] + " " + arguments.back();
        EXPECT_EQ(result.status, 2) << command << '\n' << result.errors;
        EXPECT_EQ(sentences(result.errors).size(), 1U) << command << '\n' << result.errors;
        EXPECT_NE(result.errors.find("--help'"), std::string::npos) << command << '\n' << result.errors;
    }
}

TEST(KoruoneJson, CalibrationIsAnObject) {
    Shell tool;

    const ToolResult own = tool.run({"calib", "--serial", "30010001", "--json", "-q"});

    ASSERT_EQ(own.status, 0) << own.errors;
    const nlohmann::json calibration = own.json();
    EXPECT_EQ(calibration.at("sensor_family"), 1);
    EXPECT_EQ(calibration.at("modes").size(), 3U);
    EXPECT_GT(calibration.at("modes")[0].at("fx"), 100.0);
    EXPECT_EQ(calibration.at("distortion").size(), 12U);
    EXPECT_EQ(calibration.at("differs_from_factory"), nlohmann::json::array());
}

TEST(KoruoneAdvice, LogsWhatIsAskedFor) {
    Shell tool;
    const Arguments wrong{"info", "--id", "77"};
    const auto errors = [&](const Arguments& more) {
        Arguments arguments = wrong;
        arguments.insert(arguments.end(), more.begin(), more.end());
        return tool.run(arguments).errors;
    };

    EXPECT_NE(errors({"-v"}).find("ERROR"), std::string::npos);
    EXPECT_NE(errors({"--log-level", "error"}).find("ERROR"), std::string::npos);
    EXPECT_EQ(errors({}).find("ERROR"), std::string::npos);
    EXPECT_EQ(tool.run({"info", "-q"}).errors, "") << "a virtual camera is told as a warning";
    EXPECT_NE(tool.run({"info"}).errors.find("is virtual"), std::string::npos);
    EXPECT_NE(tool.run({"-v", "info"}).errors.find("INFO"), std::string::npos);
}

TEST(KoruoneAdvice, ProgressFitsANarrowTerminal) {
    Shell tool;
    const std::string path = tool.home.path("a.rlx2");
    tool.terminalColumns = 40;

    const ToolResult recorded =
        tool.run({"record", path, "-q", "--resolution", "HD600", "--seconds", "1.5", "--compression", "raw"});
    const ToolResult played = tool.run({"play", "--no-display", path, "-q", "--realtime"});

    EXPECT_EQ(recorded.status, 0) << recorded.errors;
    EXPECT_NE(recorded.errors.find(" of 0:01, "), std::string::npos) << recorded.errors;
    EXPECT_NE(played.errors.find(" %, 0:00 of 0:0"), std::string::npos) << played.errors;
    for (const std::string& errors : {recorded.errors, played.errors}) {
        std::istringstream lines(errors);
        for (std::string line; std::getline(lines, line, '\r');) {
            const std::string erase = "\x1b[K";
            const bool erased = line.starts_with(erase);
            EXPECT_LT(line.size() - (erased ? erase.size() : 0), 40U) << line;
        }
    }
}

}  // namespace
}  // namespace oru
