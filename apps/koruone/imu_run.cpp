#include "imu_run.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <thread>
#include <utility>

#include "interrupt.hpp"
#include "json_output.hpp"
#include "open_camera.hpp"
#include "report.hpp"

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

ImuRun::ImuRun(ImuOptions options) : options_(std::move(options)), plot_(imuPanels()) {}

ExitStatus ImuRun::run() {
    const InterruptGuard guard;
    if (!openFiles() || !openCamera(camera_, options_.input)) {
        return EXIT_FAILED;
    }
    serial_ = camera_.getCameraInformation().serial_number;
    if (options_.current) {
        collectCurrent();
    } else {
        collectBatches();
    }
    camera_.close();
    progress_.clear();
    if (!closeFiles()) {
        fail();
    }
    if (status_ == EXIT_OK && clock_.packets() == 0 && !interrupted()) {
        complain("no inertial sample came; look longer with --seconds, or choose an input with sensors.");
        fail();
    }
    print();
    return status_ == EXIT_OK && interrupted() ? EXIT_INTERRUPTED : status_;
}

void ImuRun::collectBatches() {
    const Clock::time_point deadline = deadlineIn(options_.seconds);
    std::vector<oru::SensorsData> batch;
    while (!interrupted() && Clock::now() < deadline && !table_.failed()) {
        if (!accept(camera_.grab(), "no frame") || !accept(camera_.getSensorsDataBatch(batch), "no inertial samples")) {
            return;
        }
        for (const oru::SensorsData& sample : batch) {
            take(sample);
        }
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
    const Clock::time_point deadline = deadlineIn(options_.seconds);
    oru::SensorsData sample;
    for (Clock::time_point next = start; next < deadline && !table_.failed() && ending.load() == oru::SUCCESS;) {
        const oru::ERROR_CODE code = camera_.getSensorsData(sample, oru::CURRENT);
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
    while (!stop.load()) {
        const oru::ERROR_CODE code = camera_.grab();
        if (code != oru::SUCCESS) {
            ending.store(code);
            return;
        }
    }
}

bool ImuRun::accept(oru::ERROR_CODE code, const char* what) {
    if (code != oru::SUCCESS && code != oru::END_OF_INPUT) {
        progress_.clear();
        complain(code, what);
        fail();
    }
    return code == oru::SUCCESS;
}

void ImuRun::take(const oru::SensorsData& sample) {
    const PacketClock::Step step = clock_.add(sample.imu.timestamp);
    if (step == PacketClock::REPEATED) {
        return;
    }
    if (step == PacketClock::FIRST) {
        first_ = sample.imu.timestamp;
    }
    synced_ += sample.synced_with_image != 0 ? 1 : 0;
    if (table_.isOpen()) {
        table_.write(imuCsvRow(sample));
    }
    if (drawing_.isOpen()) {
        const double seconds = static_cast<double>(static_cast<int64_t>(sample.imu.timestamp - first_)) / 1e9;
        plot_.add(seconds, plotValues_.next(sample), step != PacketClock::NEXT && step != PacketClock::FIRST);
    }
    progress_.show(fmt::format("{} packets", clock_.packets()));
}

bool ImuRun::openFiles() {
    if ((!options_.csv.empty() && !table_.open(options_.csv)) ||
        (!options_.plot.empty() && !drawing_.open(options_.plot))) {
        complain("{}; choose another file.", table_.failed() ? table_.error() : drawing_.error());
        return false;
    }
    table_.write(imuCsvHeader());
    return true;
}

bool ImuRun::closeFiles() {
    if (drawing_.isOpen()) {
        const PacketClock::Summary summary = clock_.summary();
        drawing_.write(plot_.svg(fmt::format("Inertial samples of camera {}: {} packets, {:.1f} a second", serial_,
                                             summary.packets, summary.rate)));
    }
    const bool table = table_.close();
    const bool drawing = drawing_.close();
    if (!table || !drawing) {
        complain("{}; make room or choose another file.", table ? drawing_.error() : table_.error());
    }
    return table && drawing;
}

void ImuRun::print() const {
    const PacketClock::Summary summary = clock_.summary();
    if (options_.json) {
        writeJsonLine({{"packets", summary.packets},
                       {"seconds", summary.seconds},
                       {"rate", summary.rate},
                       {"interval_median_ms", summary.median_ms},
                       {"interval_max_ms", summary.largest_ms},
                       {"gaps", summary.gaps},
                       {"missing", summary.missing},
                       {"out_of_order", summary.out_of_order},
                       {"synced_with_image", synced_}});
        return;
    }
    writeOutput(
        fmt::format("{} packets in {:.3f} s: {:.3f} a second\n", summary.packets, summary.seconds, summary.rate));
    writeOutput(fmt::format("interval: median {:.3f} ms, longest {:.3f} ms\n", summary.median_ms, summary.largest_ms));
    writeOutput(summary.gaps == 0
                    ? "no gap\n"
                    : fmt::format("{} gaps, in which {} packets are missing\n", summary.gaps, summary.missing));
    if (summary.out_of_order > 0) {
        writeOutput(fmt::format("{} packets out of order\n", summary.out_of_order));
    }
}

}  // namespace koruone
