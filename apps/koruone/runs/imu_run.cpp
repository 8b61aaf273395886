#include "koruone/runs/imu_run.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <thread>
#include <utility>

#include "koruone/camera/open_camera.hpp"
#include "shared/interrupt.hpp"
#include "shared/json_output.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPollPeriod{1};
constexpr std::chrono::seconds kFirstSamplePatience{2};

Clock::time_point deadlineIn(double seconds) {
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

/// A file or a stream answers so until its first sample has come.
bool mayPass(oru::ERROR_CODE code) {
    return code == oru::SENSOR_DATA_UNAVAILABLE || code == oru::INVALID_PARAMETER;
}

}  // namespace

ImuRun::ImuRun(ImuOptions given) : options(std::move(given)), plot(imuPanels()) {}

ExitStatus ImuRun::run() {
    const InterruptGuard guard;
    const std::string csvKept = whyKept(options.csv, options.overwrite);
    const std::string kept = csvKept.empty() ? whyKept(options.plot, options.overwrite) : csvKept;
    if (!kept.empty()) {
        complain("{}.", kept);
        return EXIT_FAILED;
    }
    if (const ExitStatus opened = openCamera(camera, options.input); opened != EXIT_OK) {
        return opened;
    }
    if (!openFiles()) {
        return EXIT_FAILED;
    }
    serial = camera.getCameraInformation().serial_number;
    if (options.current) {
        collectCurrent();
    } else {
        collectBatches();
    }
    incoming = camera.getStreamInputStatus();
    camera.close();
    progress.clear();
    if (!closeFiles()) {
        fail();
    }
    if (status == EXIT_OK && packetClock.packets() == 0 && !interrupted()) {
        complain("no inertial sample came; look longer with --seconds, or choose an input with sensors.");
        fail();
    }
    print();
    return status == EXIT_OK && interrupted() ? EXIT_INTERRUPTED : status;
}

void ImuRun::collectBatches() {
    FrameLoop loop([this] { return camera.grab(); }, inputKind(options.input), &progress,
                   {patienceOf(options.input), "no frame", false});
    std::vector<oru::SensorsData> batch;
    const auto uses = [&] {
        if (!accept(camera.getSensorsDataBatch(batch), "no inertial samples")) {
            return false;
        }
        for (const oru::SensorsData& sample : batch) {
            take(sample);
        }
        return true;
    };
    const auto wants = [&] { return loop.secondsSinceStart() < options.seconds && !table.failed(); };
    if (!loop.run(wants, uses)) {
        fail();
    }
}

void ImuRun::collectCurrent() {
    std::atomic<bool> stop{false};
    std::atomic<oru::ERROR_CODE> ending{oru::SUCCESS};
    std::thread grabber([&] { grabUntilStopped(stop, ending); });
    pollCurrent(ending);
    stop.store(true);
    grabber.join();
    (void)accept(ending.load(), "no frame");
}

void ImuRun::pollCurrent(const std::atomic<oru::ERROR_CODE>& ending) {
    const Clock::time_point start = Clock::now();
    const Clock::time_point deadline = deadlineIn(options.seconds);
    oru::SensorsData sample;
    for (Clock::time_point next = start; next < deadline && !table.failed() && ending.load() == oru::SUCCESS;) {
        const oru::ERROR_CODE code = camera.getSensorsData(sample, oru::CURRENT);
        if (code == oru::SUCCESS) {
            take(sample);
        } else if (!mayPass(code) || Clock::now() - start > kFirstSamplePatience) {
            (void)accept(code, "no current inertial sample");
            return;
        }
        next = std::max(next + kPollPeriod, Clock::now());
        if (!sleepUntil(next)) {
            return;
        }
    }
}

void ImuRun::grabUntilStopped(std::atomic<bool>& stop, std::atomic<oru::ERROR_CODE>& ending) {
    const std::chrono::nanoseconds patience = patienceOf(options.input);
    Clock::time_point lastFrame = Clock::now();
    while (!stop.load()) {
        const oru::ERROR_CODE code = camera.grab();
        const Clock::time_point now = Clock::now();
        if (code == oru::SUCCESS) {
            lastFrame = now;
        } else if (code != oru::CAMERA_NOT_READY || now - lastFrame >= patience) {
            ending.store(code);
            return;
        }
    }
}

bool ImuRun::accept(oru::ERROR_CODE code, const char* what) {
    if (code != oru::SUCCESS && code != oru::END_OF_INPUT) {
        progress.clear();
        complain(code, what, subjectOf(inputKind(options.input)), "");
        fail();
    }
    return code == oru::SUCCESS;
}

void ImuRun::take(const oru::SensorsData& sample) {
    const PacketClock::Step step = packetClock.add(sample.imu.timestamp);
    if (step == PacketClock::REPEATED) {
        return;
    }
    if (step == PacketClock::FIRST) {
        firstTimestamp = sample.imu.timestamp;
    }
    synced += sample.synced_with_image != 0 ? 1 : 0;
    if (table.isOpen()) {
        table.write(imuCsvRow(sample));
    }
    if (drawing.isOpen()) {
        const double seconds = static_cast<double>(static_cast<int64_t>(sample.imu.timestamp - firstTimestamp)) / 1e9;
        plot.add(seconds, plotValues.next(sample), step != PacketClock::NEXT && step != PacketClock::FIRST);
    }
    progress.show(fmt::format("{} packets", packetClock.packets()));
}

bool ImuRun::openFiles() {
    if ((!options.csv.empty() && !table.open(options.csv)) || (!options.plot.empty() && !drawing.open(options.plot))) {
        complain("{}; choose another file.", table.failed() ? table.error() : drawing.error());
        return false;
    }
    table.write(imuCsvHeader());
    return true;
}

bool ImuRun::closeFiles() {
    if (drawing.isOpen()) {
        const PacketClock::Summary summary = packetClock.summary();
        drawing.write(plot.svg(fmt::format("Inertial samples of camera {}: {} packets, {:.1f} a second", serial,
                                           summary.packets, summary.rate)));
    }
    const bool tableKept = table.close();
    const bool drawingKept = drawing.close();
    if (!tableKept || !drawingKept) {
        complain("{}; make room or choose another file.", tableKept ? drawing.error() : table.error());
    }
    return tableKept && drawingKept;
}

void ImuRun::print() const {
    const PacketClock::Summary summary = packetClock.summary();
    const bool streamed = !options.input.stream.empty();
    if (options.json) {
        Json result{{"packets", summary.packets},
                    {"seconds", summary.seconds},
                    {"rate", summary.rate},
                    {"interval_median_ms", summary.median_ms},
                    {"interval_max_ms", summary.largest_ms},
                    {"gaps", summary.gaps},
                    {"missing", summary.missing},
                    {"out_of_order", summary.out_of_order},
                    {"synced_with_image", synced}};
        if (streamed) {
            result["stream"] = toJson(incoming);
        }
        writeJsonLine(result);
        return;
    }
    writeOutput(
        fmt::format("{} packets in {:.3f} s: {:.3f} a second\n", summary.packets, summary.seconds, summary.rate));
    writeOutput(fmt::format("interval: median {:.3f} ms, longest {:.3f} ms\n", summary.median_ms, summary.largest_ms));
    writeOutput(summary.gaps == 0
                    ? "no gap\n"
                    : fmt::format("{}, in which {} missing\n", counted(summary.gaps, "gap"),
                                  counted(summary.missing, "packet") + (summary.missing == 1 ? " is" : " are")));
    if (summary.out_of_order > 0) {
        writeOutput(fmt::format("{} packets out of order\n", summary.out_of_order));
    }
    if (streamed) {
        writeOutput(fmt::format("stream: {}\n", streamText(incoming)));
    }
}

}  // namespace koruone
