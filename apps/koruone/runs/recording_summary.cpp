#include "koruone/runs/recording_summary.hpp"

#include <fmt/chrono.h>
#include <fmt/core.h>

#include <chrono>
#include <filesystem>

#include "koruone/output/compression_names.hpp"
#include "oru/calibration.hpp"
#include "shared/Progress.hpp"
#include "shared/interrupt.hpp"
#include "shared/recording_advice.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

constexpr double kMegabyte = 1e6;

void readIndex(RecordingSummary& summary) {
    oru::RecordedFile recording;
    const oru::ERROR_CODE code = recording.open(summary.file);
    summary.condition = recording.condition();
    summary.facts = recording.facts();
    summary.playable = code == oru::SUCCESS || code == oru::RLX_CODEC_UNAVAILABLE;
    std::error_code unknown;
    summary.bytes = std::filesystem::file_size(summary.file, unknown);
    const int frames = recording.frameCount();
    if (frames > 0) {
        summary.frames = static_cast<uint64_t>(frames);
        summary.start = recording.frameTime(0);
        summary.seconds = static_cast<double>(recording.frameTime(frames - 1) - summary.start) / 1e9;
    }
}

std::string timeOfDay(oru::Timestamp time) {
    const auto seconds = static_cast<std::time_t>(time / 1'000'000'000U);
    return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03} UTC", fmt::gmtime(seconds), time / 1'000'000U % 1000U);
}

std::string sizeText(uint64_t bytes) {
    return fmt::format("{:.1f} MB", static_cast<double>(bytes) / kMegabyte);
}

/// A file that lacks its end is searched for frames, not for samples.
bool countsSamples(const RecordingSummary& summary) {
    return summary.read && (summary.read->imu_packets > 0 || summary.condition == oru::RECORDING_CONDITION::INTACT);
}

std::string samplesText(const RecordingSummary& summary) {
    if (!countsSamples(summary)) {
        return summary.facts.has_imu ? "yes, not counted" : "none";
    }
    return std::to_string(summary.read->imu_packets);
}

std::string damageText(const RecordingSummary& summary) {
    if (summary.condition != oru::RECORDING_CONDITION::INTACT) {
        return fmt::format("the file {}; {}", oru::describe(summary.condition),
                           recordingAdvice(summary.condition, summary.file));
    }
    if (!summary.read) {
        return "none by its index; not read to the end";
    }
    return summary.read->damaged == 0
               ? "none"
               : fmt::format("{}; 'koruone verify' tells more", counted(summary.read->damaged, "frame"));
}

std::string calibrationSummary(const oru::RecordingFacts& facts) {
    if (facts.calibration_text.empty()) {
        return "none in the file";
    }
    const std::string defect =
        oru::calibrationDefect(facts.calibration_text.get(), facts.serial_number, oru::Completeness::KNOWN);
    return defect.empty() ? fmt::format("of camera {}", facts.serial_number) : "unusable: " + defect;
}

}  // namespace

ExitStatus summariseRecording(const std::string& file, bool readAll, RecordingSummary& summary) {
    summary.file = file;
    readIndex(summary);
    if (summary.facts.version == 0 ||
        (summary.condition != oru::RECORDING_CONDITION::INTACT && !oru::isRepairable(summary.condition))) {
        complainOfRecording(summary.condition, file);
        return EXIT_FAILED;
    }
    if (readAll) {
        Progress progress("info");
        summary.read = oru::RecordedFile::verify(file, [&](uint64_t done, uint64_t total) {
            progress.show(done, total);
            return !interrupted();
        });
    }
    if (interrupted()) {
        return EXIT_INTERRUPTED;
    }
    if (summary.read) {
        summary.condition = summary.read->condition;
        summary.frames = summary.playable ? summary.frames : summary.read->frames;
    }
    return summary.condition == oru::RECORDING_CONDITION::INTACT ? EXIT_OK : EXIT_DAMAGED;
}

std::string recordingText(const RecordingSummary& summary) {
    const oru::RecordingFacts& facts = summary.facts;
    std::string text =
        fmt::format("recording        {}, version {}, {}\n", summary.file, facts.version, sizeText(summary.bytes));
    text += fmt::format("frames           {}\n", summary.frames);
    if (summary.start != 0) {
        text += fmt::format("start            {}\n", timeOfDay(summary.start));
        text += fmt::format("duration         {:.3f} s\n", summary.seconds);
    }
    text += fmt::format("codec            {}, {}x{} at {:.0f} frames/s\n", compressionName(facts.compression_mode),
                        facts.size.width, facts.size.height, facts.fps);
    text += fmt::format("inertial samples {}\n", samplesText(summary));
    text += fmt::format("calibration      {}\n", calibrationSummary(facts));
    return text + fmt::format("damage           {}\n", damageText(summary));
}

Json recordingJson(const RecordingSummary& summary) {
    const oru::RecordingFacts& facts = summary.facts;
    Json object = {{"file", summary.file},
                   {"version", facts.version},
                   {"bytes", summary.bytes},
                   {"frames", summary.frames},
                   {"start_ns", summary.start == 0 ? Json(nullptr) : Json(summary.start)},
                   {"seconds", summary.start == 0 ? Json(nullptr) : number(summary.seconds)},
                   {"compression", compressionName(facts.compression_mode)},
                   {"width", facts.size.width},
                   {"height", facts.size.height},
                   {"fps", number(facts.fps)},
                   {"has_samples", facts.has_imu},
                   {"calibration", !facts.calibration_text.empty()},
                   {"condition", oru::describe(summary.condition)}};
    object["samples"] = countsSamples(summary) ? Json(summary.read->imu_packets) : Json(nullptr);
    object["damaged"] = summary.read ? Json(summary.read->damaged) : Json(nullptr);
    return object;
}

}  // namespace koruone
