#include <fmt/core.h>

#include <memory>

#include "koruone/camera/control_access.hpp"
#include "koruone/camera/open_camera.hpp"
#include "koruone/commands/commands.hpp"
#include "shared/input_options.hpp"
#include "shared/interrupt.hpp"
#include "shared/json_output.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

struct ControlsOptions {
    InputOptions input;
    bool json = false;
    std::string name;
    std::vector<std::string> values;
    std::vector<uint64_t> region;
};

const Control& kRegion = *oru::findControl(oru::AEC_AGC_ROI);

template <class T>
Json orNull(const std::optional<T>& value) {
    return value ? Json(*value) : Json(nullptr);
}

/// A number for one value, a list for more.
Json valueJson(const std::optional<ControlValue>& value) {
    return value && value->size() == 1 ? Json(value->front()) : orNull(value);
}

Json stateJson(const ControlState& state) {
    return {{"name", state.control->name},
            {"number", static_cast<int>(state.control->number)},
            {"kind", kindName(state.control->kind)},
            {"supported", state.supported},
            {"min", state.range ? Json((*state.range)[0]) : Json(nullptr)},
            {"max", state.range ? Json((*state.range)[1]) : Json(nullptr)},
            {"value", valueJson(state.value)},
            {"automatic", orNull(state.automatic)},
            {"default", valueJson(state.default_value)},
            {"default_automatic", orNull(state.default_automatic)}};
}

std::string defaultText(const ControlState& state) {
    if (state.default_automatic.value_or(false)) {
        return "automatic";
    }
    return state.default_value ? valueText(*state.default_value) : "";
}

std::string stateRow(const ControlState& state) {
    const std::string range = state.range ? fmt::format("{} .. {}", (*state.range)[0], (*state.range)[1]) : "";
    std::string value = state.value ? valueText(*state.value) : "";
    if (state.value && state.automatic.value_or(false)) {
        value += " (automatic)";
    }
    return fmt::format("{:<17}  {:<10}  {:<15}  {:<18}  {}\n", state.control->name, kindName(state.control->kind),
                       state.supported ? range : "not offered", value, defaultText(state));
}

ExitStatus list(oru::CameraOne& camera, const ControlsOptions& options) {
    const std::vector<ControlState> states = describeControls(camera);
    if (options.json) {
        Json all = Json::array();
        for (const ControlState& state : states) {
            all.push_back(stateJson(state));
        }
        writeJsonLine(all);
        return EXIT_OK;
    }
    writeOutput(fmt::format("{:<17}  {:<10}  {:<15}  {:<18}  {}\n", "name", "kind", "range", "value", "default"));
    for (const ControlState& state : states) {
        writeOutput(stateRow(state));
    }
    return EXIT_OK;
}

void printValue(const Control& control, const ControlValue& value, bool json) {
    if (json) {
        writeJsonLine({{"name", control.name}, {"value", valueJson(value)}});
    } else {
        writeOutput(fmt::format("{} {}\n", control.name, valueText(value)));
    }
}

ExitStatus printControl(oru::CameraOne& camera, const Control& control, bool json) {
    if (!isReadable(camera, control)) {
        complain("{} cannot be read here.", control.name);
        return EXIT_FAILED;
    }
    ControlValue value;
    const oru::ERROR_CODE code = readControl(camera, control, value);
    if (code != oru::SUCCESS) {
        complain(code, fmt::format("cannot read {}", control.name));
        return EXIT_FAILED;
    }
    printValue(control, value, json);
    return EXIT_OK;
}

ExitStatus reset(oru::CameraOne& camera, const ControlsOptions& options) {
    const std::vector<std::string> refused = resetControls(camera);
    for (const std::string& name : refused) {
        complain("{} did not take its default; see 'koruone controls list'.", name);
    }
    const ExitStatus listed = list(camera, options);
    return refused.empty() ? listed : EXIT_FAILED;
}

std::string checkName(const std::string& name) {
    return oru::findControl(name) != nullptr ? "" : "'" + name + "' is no control; see 'koruone controls list'";
}

using Action = ExitStatus (*)(oru::CameraOne&, const ControlsOptions&);

ExitStatus withCamera(const ControlsOptions& options, Action action) {
    if (inputKind(options.input) == oru::KIND_RLX_FILE) {
        throw CLI::ValidationError("--file", "a recorded file has no controls");
    }
    const InterruptGuard guard;
    oru::CameraOne camera;
    const ExitStatus opened = openCamera(camera, options.input);
    return opened == EXIT_OK ? action(camera, options) : opened;
}

ExitStatus get(oru::CameraOne& camera, const ControlsOptions& options) {
    return printControl(camera, *oru::findControl(options.name), options.json);
}

/// Prints what the control holds after the write.
ExitStatus write(oru::CameraOne& camera, const Control& control, const ControlValue& value, bool json) {
    if (const ExitStatus set = setControl(camera, control, value); set != EXIT_OK) {
        return set;
    }
    if (isReadable(camera, control)) {
        return printControl(camera, control, json);
    }
    const std::string written = value.empty() ? "auto" : valueText(value);
    if (json) {
        writeJsonLine({{"name", control.name}, {"value", nullptr}, {"written", written}});
    } else {
        writeOutput(fmt::format("{} {} (written; this control cannot be read back here)\n", control.name, written));
    }
    return EXIT_OK;
}

ExitStatus set(oru::CameraOne& camera, const ControlsOptions& options) {
    const Control& control = *oru::findControl(options.name);
    return write(camera, control, parseValue(control, options.values).value_or(ControlValue()), options.json);
}

ExitStatus region(oru::CameraOne& camera, const ControlsOptions& options) {
    if (options.region.empty()) {
        return printControl(camera, kRegion, options.json);
    }
    return write(camera, kRegion, ControlValue(options.region.begin(), options.region.end()), options.json);
}

void checkSet(const ControlsOptions& options) {
    const Control& control = *oru::findControl(options.name);
    if (!parseValue(control, options.values)) {
        throw CLI::ValidationError("set", fmt::format("{} {}", control.name, valueForm(control)));
    }
}

}  // namespace

void registerControls(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<ControlsOptions>();
    CLI::App* command = tool.add_subcommand("controls", "Read and write a camera's controls");
    command->require_subcommand(1);
    addCameraOptions(*command, options->input);
    command->add_flag("--json", options->json, "Print JSON");

    const auto add = [&](const char* name, const char* text, Action action) {
        CLI::App* sub = command->add_subcommand(name, text)->fallthrough();
        sub->callback([options, action, &status] { status = withCamera(*options, action); });
        return sub;
    };
    add("list", "Every control with its range, value and default", list);
    add("reset", "Put every control to its automatic value or default", reset);
    add("get", "Print one control", get)
        ->add_option("name", options->name, "Its name, for instance GAIN")
        ->required()
        ->check(CLI::Validator([](std::string& name) { return checkName(name); }, ""));
    CLI::App* roi = add("roi", "Print or set the region of the automatic exposure", region);
    roi->add_option("region", options->region, "X Y WIDTH HEIGHT in pixels")->expected(0, 4)->type_name("X Y W H");
    roi->callback([options, &status] {
        if (!options->region.empty() && options->region.size() != 4) {
            throw CLI::ValidationError("roi", "a region is four numbers: X Y WIDTH HEIGHT");
        }
        status = withCamera(*options, region);
    });

    CLI::App* setter = add("set", "Write one control and read it back", set);
    setter->add_option("name", options->name, "Its name, for instance GAIN")
        ->required()
        ->check(CLI::Validator([](std::string& name) { return checkName(name); }, ""));
    setter->add_option("value", options->values, "A number, or auto; of a range its minimum and maximum")
        ->required()
        ->expected(1, 4)
        ->type_name("VALUE");
    setter->callback([options, &status] {
        checkSet(*options);
        status = withCamera(*options, set);
    });
}

}  // namespace koruone
