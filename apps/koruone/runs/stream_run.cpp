#include "koruone/runs/stream_run.hpp"

#include <arpa/inet.h>
#include <fmt/core.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "koruone/camera/open_camera.hpp"
#include "shared/interrupt.hpp"
#include "shared/json_output.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kReportEvery{1};
constexpr std::chrono::nanoseconds kLongestWait{10'000'000'000};

/// The address under which another machine finds this one: that of the first network that is up.
std::string ownAddress() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return "127.0.0.1";
    }
    std::string found = "127.0.0.1";
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        const bool usable = (entry->ifa_flags & IFF_UP) != 0 && (entry->ifa_flags & IFF_LOOPBACK) == 0;
        if (!usable || entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) {
            continue;
        }
        sockaddr_in address{};
        std::memcpy(&address, entry->ifa_addr, sizeof(address));
        char text[INET_ADDRSTRLEN] = "";
        if (inet_ntop(AF_INET, &address.sin_addr, text, sizeof(text)) != nullptr) {
            found = text;
            break;
        }
    }
    freeifaddrs(list);
    return found;
}

double percentRepeated(const oru::StreamingStatus& now, const oru::StreamingStatus& before) {
    const uint64_t sent = now.packets_sent - before.packets_sent;
    const uint64_t repeated = now.packets_repeated - before.packets_repeated;
    return sent == 0 ? 0.0 : 100.0 * static_cast<double>(repeated) / static_cast<double>(sent);
}

/// Who reads a pipe or a file wants to see each line when it is due.
void writeNow(std::string_view text) {
    writeOutput(text);
    (void)std::fflush(stdout);
}

}  // namespace

StreamRun::StreamRun(StreamOptions streamOptions)
    : options(std::move(streamOptions)),
      loop([this] { return camera.grab(); }, inputKind(options.input), nullptr,
           {options.input.stream.empty() ? kLongestWait : patienceOf(options.input), "", false}) {}

ExitStatus StreamRun::run() {
    const InterruptGuard guard;
    if (const ExitStatus opened = openCamera(camera, options.input); opened != EXIT_OK) {
        return opened;
    }
    if (!start()) {
        return EXIT_FAILED;
    }
    sendFrames();
    report(Clock::now());
    summarise();
    camera.disableStreaming();
    camera.close();
    return exitStatus == EXIT_OK && interrupted() && options.seconds > 0.0 ? EXIT_INTERRUPTED : exitStatus;
}

bool StreamRun::start() {
    const oru::ERROR_CODE code = camera.enableStreaming(options.stream);
    if (code != oru::SUCCESS) {
        complain(code, fmt::format("cannot stream on port {}", options.stream.port), Subject::SENDER);
        return false;
    }
    const oru::StreamingParameters used = camera.getStreamingParameters();
    const oru::Resolution size = camera.getCameraInformation().configuration.resolution;
    const std::string address = fmt::format("{}:{}", ownAddress(), used.port);
    if (!options.json) {
        const char* key = std::getenv("KORU_STREAM_PASSPHRASE");
        const bool keyed = key != nullptr && *key != '\0';
        writeNow(
            fmt::format("streaming {} x {}, {}, {} kbit/s, port {}\n"
                        "in a player:      ffplay -fflags nobuffer srt://{}{}\n"
                        "in this tool:     koruone grab --stream {}\n",
                        size.width, size.height, used.codec == oru::DENSE_CODEC ? "H.265" : "H.264", used.bitrate,
                        used.port, address, keyed ? "?passphrase=KEY" : "", address));
    }
    lastReport = Clock::now();
    return true;
}

void StreamRun::sendFrames() {
    const auto wants = [this] {
        reportWhenDue();
        return outputWorks() && (options.seconds <= 0.0 || loop.secondsSinceStart() < options.seconds);
    };
    if (!loop.run(wants, [] { return true; })) {
        exitStatus = EXIT_FAILED;
    }
}

void StreamRun::reportWhenDue() {
    const Time now = Clock::now();
    if (now - lastReport >= kReportEvery) {
        report(now);
    }
}

void StreamRun::report(Time now) {
    const double seconds = std::chrono::duration<double>(now - lastReport).count();
    if (seconds <= 0.0) {
        return;
    }
    const oru::StreamingStatus status = camera.getStreamingStatus();
    mostReceivers = std::max<uint64_t>(mostReceivers, status.receivers);
    if (!options.json) {
        const double frames = static_cast<double>(status.frames_sent - lastStatus.frames_sent) / seconds;
        const double megabits = static_cast<double>(status.bytes_sent - lastStatus.bytes_sent) * 8e-6 / seconds;
        writeNow(fmt::format(
            "{:6.1f} s  {}  {:5.1f} frames/s  {:6.2f} Mbit/s  {:4.1f} % repeated  "
            "backlog {:3.0f} ms  {} skipped  {} held back{}\n",
            loop.secondsSinceStart(), counted(status.receivers, "receiver"), frames, megabits,
            percentRepeated(status, lastStatus), status.backlog_ms, status.frames.lost(), status.frames_held_back,
            status.samples_lost == 0 ? "" : fmt::format("  {} samples lost", status.samples_lost)));
    }
    lastStatus = status;
    lastReport = now;
}

void StreamRun::summarise() const {
    if (!options.json) {
        return;
    }
    Json result;
    result["frames"] = loop.frames();
    result["seconds"] = number(loop.secondsSinceStart());
    result["most_receivers"] = mostReceivers;
    result["frames_sent"] = lastStatus.frames_sent;
    result["frames_skipped"] = lastStatus.frames.lost();
    result["frames_held_back"] = lastStatus.frames_held_back;
    result["samples_lost"] = lastStatus.samples_lost;
    result["packets_sent"] = lastStatus.packets_sent;
    result["packets_repeated"] = lastStatus.packets_repeated;
    result["bytes_sent"] = lastStatus.bytes_sent;
    writeJsonLine(result);
}

}  // namespace koruone
