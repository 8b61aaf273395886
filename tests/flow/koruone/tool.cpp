#include "flow/koruone/tool.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <png.h>
#include <pty.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <sstream>
#include <thread>

#include "support/transport_suppressions.hpp"

namespace oru {
namespace {

constexpr std::chrono::seconds kLongestRun{120};

void redirect(const std::string& path, int descriptor) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::dup2(file, descriptor);
    ::close(file);
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

#ifdef ORU_THREAD_SANITIZER
/// Outside of every tool's home, where tests look for what the tool left behind.
std::string knownRacesFile() {
    static const TemporaryDirectory folder;
    static const std::string path = folder.write("known_races", kKnownRaces);
    return path;
}
#endif

}  // namespace

nlohmann::json ToolResult::json() const {
    std::istringstream lines(output);
    std::string last;
    for (std::string line; std::getline(lines, line);) {
        last = line;
    }
    return nlohmann::json::parse(last, nullptr, false);
}

Tool::Tool() {
    environment = {{"HOME", home.path("")},
                   {"XDG_DATA_HOME", home.path("data")},
                   {"KORU_SDK_LOGGER_LEVEL", "error"},
                   {"PATH", "/usr/bin:/bin"}};
#ifdef ORU_THREAD_SANITIZER
    environment["TSAN_OPTIONS"] = "suppressions=" + knownRacesFile();
#endif
    if (const char* locks = std::getenv("KORU_VIRTUAL_BUS_LOCKS"); locks != nullptr) {
        environment["KORU_VIRTUAL_BUS_LOCKS"] = locks;
    }
}

ToolResult Tool::run(const Arguments& arguments) {
    start(arguments);
    return wait();
}

pid_t Tool::start(const Arguments& arguments) {
    std::vector<std::string> words{KORUONE_TOOL};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> settings;
    for (const auto& [name, value] : environment) {
        settings.push_back(name + "=" + value);
    }
    std::vector<char*> argv = pointers(words);
    std::vector<char*> envp = pointers(settings);
    const std::string output = outputFile.empty() ? home.path("output") : outputFile;
    const std::string errors = home.path("errors");
    int slave = -1;
    if (terminalColumns > 0) {
        winsize size{24, terminalColumns, 0, 0};
        (void)::openpty(&terminal, &slave, nullptr, nullptr, &size);
        (void)::fcntl(terminal, F_SETFL, O_NONBLOCK);
        shown.clear();
    }
    process = ::fork();
    if (process == 0) {
        redirect(output, STDOUT_FILENO);
        if (slave >= 0) {
            ::dup2(slave, STDERR_FILENO);
            if (allOnTerminal) {
                ::setsid();
                ::dup2(slave, STDIN_FILENO);
                ::dup2(slave, STDOUT_FILENO);
            }
        } else {
            redirect(errors, STDERR_FILENO);
        }
        limit();
        ::execve(argv[0], argv.data(), envp.data());
        ::_exit(127);
    }
    if (slave >= 0) {
        ::close(slave);
    }
    return process;
}

/// Of the child, before it becomes the tool.
void Tool::limit() const {
    if (unprivileged) {
        for (const int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_NET_BIND_SERVICE}) {
            (void)::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0);
        }
    }
    if (largestFile > 0) {
        const rlimit size{largestFile, largestFile};
        (void)::setrlimit(RLIMIT_FSIZE, &size);
    }
}

void Tool::collectTerminal() {
    char buffer[4096];
    for (ssize_t got = 0; terminal >= 0 && (got = ::read(terminal, buffer, sizeof(buffer))) > 0;) {
        shown.append(buffer, static_cast<std::size_t>(got));
    }
}

void Tool::signal(int number) const {
    ::kill(process, number);
}

ToolResult Tool::wait() {
    const auto deadline = std::chrono::steady_clock::now() + kLongestRun;
    int status = 0;
    while (::waitpid(process, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            ::kill(process, SIGKILL);
            ::waitpid(process, &status, 0);
            break;
        }
        collectTerminal();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    collectTerminal();
    ToolResult result;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    result.output = outputFile.empty() ? home.read("output") : "";
    result.errors = terminal >= 0 ? shown : home.read("errors");
    if (terminal >= 0) {
        ::close(terminal);
        terminal = -1;
    }
    return result;
}

std::string recordShort(Tool& tool, const std::string& compression) {
    const std::string path = tool.home.path("a.rlx2");
    const ToolResult recorded = tool.run({"record", path, "--serial", "30010001", "--resolution", "HD600", "--frames",
                                          "20", "--compression", compression});
    EXPECT_EQ(recorded.status, 0) << recorded.errors;
    EXPECT_NE(recorded.output.find("frames written"), std::string::npos) << recorded.output;
    return path;
}

uint64_t framesPlayed(Tool& tool, const std::string& path) {
    const ToolResult played = tool.run({"play", path, "--json"});
    EXPECT_EQ(played.status, 0) << played.errors;
    return played.json().value("frames", uint64_t{0});
}

void shorten(const std::string& path, uint64_t bytes) {
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - bytes);
}

bool waitForFile(const std::string& path) {
    for (int i = 0; i < 3000 && !std::filesystem::exists(path); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return std::filesystem::exists(path);
}

std::vector<std::vector<std::string>> readCsv(const std::string& path) {
    std::vector<std::vector<std::string>> rows;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::vector<std::string> row;
        std::istringstream fields(line + ",");
        for (std::string field; std::getline(fields, field, ',');) {
            row.push_back(field);
        }
        rows.push_back(row);
    }
    return rows;
}

double DecodedPng::mean() const {
    double sum = 0.0;
    for (const unsigned char value : pixels) {
        sum += value;
    }
    return pixels.empty() ? 0.0 : sum / static_cast<double>(pixels.size());
}

double DecodedPng::spread() const {
    const double middle = mean();
    double sum = 0.0;
    for (const unsigned char value : pixels) {
        sum += (value - middle) * (value - middle);
    }
    return pixels.empty() ? 0.0 : std::sqrt(sum / static_cast<double>(pixels.size()));
}

DecodedPng readPng(const std::string& path) {
    DecodedPng decoded;
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0) {
        return decoded;
    }
    decoded.gray = (image.format & PNG_FORMAT_FLAG_COLOR) == 0;
    image.format = decoded.gray ? PNG_FORMAT_GRAY : PNG_FORMAT_RGB;
    decoded.pixels.resize(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, decoded.pixels.data(), 0, nullptr) == 0) {
        return {};
    }
    decoded.width = image.width;
    decoded.height = image.height;
    return decoded;
}

}  // namespace oru
