#include "shared/json_output.hpp"

#include <cmath>

#include "shared/report.hpp"

namespace koruone {
namespace {

static_assert(sizeof(oru::FrameCounters) == 10 * sizeof(uint64_t), "every field has its line below");

}  // namespace

Json toJson(const oru::StreamInputStatus& status) {
    return {{"reconnections", status.reconnections},
            {"samples_dropped", status.samples_dropped},
            {"ended_by_sender", status.goodbye}};
}

std::vector<std::pair<const char*, uint64_t>> namedCounters(const oru::FrameCounters& counters) {
    return {
        {"produced", counters.produced},
        {"delivered", counters.delivered},
        {"sensor_gap", counters.sensor_gap},
        {"overwritten", counters.overwritten},
        {"late", counters.late},
        {"queue_full", counters.queue_full},
        {"decode_failed", counters.decode_failed},
        {"damaged", counters.damaged},
        {"network", counters.network},
        {"sender_busy", counters.sender_busy},
    };
}

Json toJson(const oru::FrameCounters& counters) {
    Json object = Json::object();
    for (const auto& [name, value] : namedCounters(counters)) {
        object[name] = value;
    }
    return object;
}

Json number(double value) {
    return std::isfinite(value) ? Json(value) : Json(nullptr);
}

void writeJsonLine(const Json& value) {
    writeOutput(value.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

}  // namespace koruone
