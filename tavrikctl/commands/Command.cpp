#include "tavrikctl/commands/Command.h"

#include <cmath>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "client/GripperSettings.h"
#include "client/Printable.h"

namespace tavrik {

void Command::AddGripper() {
    auto* const name =
        app.add_option("GRIPPER", gripperName,
                       "device string, model, serial number, or a part of it")
            ->check(CheckNotEmpty)  // an unset variable must not mean the only gripper
            ->option_text(" ");
    app.add_flag("--exact", isExact, "GRIPPER is the complete device string")->needs(name);
}

std::string Command::ChosenGripper(Daemon& daemon) const {
    return daemon.FindGripper(gripperName, isExact);
}

CLI::Option* Command::AddSetNumber(int& number) {
    return AddNumber("-s,--set", number, kSetCount - 1, "parameter set (force and limits)");
}

CLI::Option* Command::AddNumber(const std::string& name, int& number, int largest,
                                const std::string& description) {
    return app
        .add_option(name, number,
                    description + ", 0 to " + std::to_string(largest) + " (default: 0)")
        ->check(CheckDecimal)
        ->check(CLI::Range(0, largest))
        ->option_text("N");
}

void Command::AddJson() {
    app.add_flag("--json", json, "print JSON");
}

CLI::Option* Command::AddFile(const std::string& name, std::string& path,
                              const std::string& description) {
    return app.add_option(name, path, description)
        ->check(CheckNotEmpty)
        ->option_text(name.starts_with('-') ? "FILE" : " ");
}

std::string CommandText(const std::string& command, const Gripper& gripper,
                        const Endpoint& endpoint) {
    return "tavrikctl " + command + " " + ShellWord(gripper.Name()) + endpoint.Options();
}

CLI::App& AddParent(CLI::App& program, const std::string& name, const std::string& description,
                    const std::string& names) {
    auto& parent = *program.add_subcommand(name, description);
    parent.parse_complete_callback([&program, &parent, name, names] {
        if (parent.get_subcommands().empty() && program.remaining(true).empty()) {
            throw CLI::ValidationError(name, "must be followed by " + names);
        }
    });
    return parent;
}

std::string CheckDecimal(const std::string& text) {
    const bool isDecimal = text.find_first_not_of("0123456789") == std::string::npos;
    if (isDecimal && (text == "0" || !text.starts_with('0'))) {
        return "";
    }
    return "invalid number '" + text + "': " + (isDecimal ? "leading zero" : "not decimal");
}

std::string CheckNotEmpty(const std::string& text) {
    return text.empty() ? "must not be empty" : "";
}

std::string CheckNoFolder(const std::string& path) {
    std::error_code error;  // a path that cannot be accessed is not a folder
    return std::filesystem::is_directory(path, error) ? "'" + path + "' is a directory" : "";
}

CLI::Option* AddTimeOption(CLI::App& app, const std::string& name, std::chrono::milliseconds& time,
                           const std::string& description) {
    const auto take = [name, &time](double seconds) {
        constexpr double kShortest = 0.001;
        constexpr double kLongest = 3600;
        if (!(seconds >= kShortest && seconds <= kLongest)) {  // true for NaN, too
            std::ostringstream text;
            text << "invalid time '" << seconds << "': must be 0.001 to 3600 seconds";
            throw CLI::ValidationError(name, text.str());
        }
        time = std::chrono::milliseconds(std::llround(seconds * std::milli::den));
    };
    return app.add_option_function<double>(name, take, description)->option_text("SECONDS");
}

}  // namespace tavrik
