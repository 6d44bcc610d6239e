#include "tavrikctl/commands/Command.h"

#include "tavrikctl/Options.h"

namespace tavrik {

void Command::AddGripper() {
    auto* const name =
        app.add_option("GRIPPER", gripperName,
                       "part of its device string; not needed for an only one")
            ->check(CheckNotEmpty)  // a variable that is not set must not mean the only gripper
            ->option_text(" ");
    app.add_flag("--exact", isWholeName, "GRIPPER is the whole device string")->needs(name);
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
                    description + ", 0 to " + std::to_string(largest) + " (0 if not given)")
        ->check(CheckDecimal)
        ->check(CLI::Range(0, largest))
        ->option_text("N");
}

void Command::AddJson(bool& json) {
    app.add_flag("--json", json, "answer in JSON, for programs");
}

}  // namespace tavrik
