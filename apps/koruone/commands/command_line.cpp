#include "koruone/commands/command_line.hpp"

#include <fmt/core.h>

#include <string>
#include <vector>

#include "shared/report.hpp"

namespace koruone {
namespace {

bool isGroup(const CLI::App& app) {
    return app.get_name().empty();
}

/// The command that the words lead to, with its name as it is typed.
const CLI::App& reachedCommand(const CLI::App& tool, std::string& name) {
    const CLI::App* command = &tool;
    name = tool.get_name();
    for (bool deeper = true; deeper;) {
        deeper = false;
        for (const CLI::App* next : command->get_subcommands()) {
            if (!isGroup(*next)) {
                command = next;
                name += " " + next->get_name();
                deeper = true;
                break;
            }
        }
    }
    return *command;
}

std::string namesOfCommands(const CLI::App& command) {
    std::string names;
    for (const CLI::App* next : command.get_subcommands([](const CLI::App* app) { return !isGroup(*app); })) {
        names += (names.empty() ? "" : ", ") + next->get_name();
    }
    return names;
}

std::string whatIsWrong(const CLI::App& tool, const CLI::App& command, const CLI::ParseError& error,
                        const std::string& name) {
    const bool incomplete = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    if (!incomplete && dynamic_cast<const CLI::ExtrasError*>(&error) == nullptr) {
        return error.what();
    }
    const std::string choices = namesOfCommands(command);
    std::vector<std::string> words = command.remaining(false);
    if (words.empty()) {
        words = tool.remaining(true);
    }
    if (!words.empty() && words.front().starts_with('-')) {
        return fmt::format("'{}' is not an option of '{}'", words.front(), name);
    }
    if (!choices.empty()) {
        return words.empty() ? fmt::format("'{}' needs one of {}", name, choices)
                             : fmt::format("'{}' is not a command of '{}', which has {}", words.front(), name, choices);
    }
    if (!words.empty()) {
        return fmt::format("'{}' is one word too many for '{}'", words.front(), name);
    }
    return error.what();
}

}  // namespace

ExitStatus explainCommandLine(const CLI::App& tool, const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
        return tool.exit(error) == 0 ? EXIT_OK : EXIT_USAGE;
    }
    std::string name;
    const CLI::App& command = reachedCommand(tool, name);
    complain("{}; see '{} --help'.", whatIsWrong(tool, command, error, name), name);
    return EXIT_USAGE;
}

}  // namespace koruone
