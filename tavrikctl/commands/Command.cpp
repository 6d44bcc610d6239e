#include "tavrikctl/commands/Command.h"

#include "tavrikctl/Options.h"

namespace tavrik {

void Command::AddGripper() {
    auto* const name =
        app.add_option("GRIPPER", gripperName,
                       "unique part of its device string; optional if there is only one")
            ->check(CheckNotEmpty)  // a variable that is not set must not mean the only gripper
            ->option_text(" ");
    app.add_flag("--exact", isWholeName, "GRIPPER is the complete device string")->needs(name);
}

std::string Command::ChosenGripper(Daemon& daemon) const {
    return daemon.FindGripper(gripperName, isWholeName);
}

CLI::Option* Command::AddSetNumber(int& number) {
    constexpr int kLargestSet = 31;  // higher indices are no parameter sets
    return AddNumber("-s,--set", number, kLargestSet, "number of the parameter set");
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

void Command::AddJson(bool& json) {
    app.add_flag("--json", json, "print JSON");
}

}  // namespace tavrik
