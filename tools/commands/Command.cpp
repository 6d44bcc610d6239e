#include "tools/commands/Command.h"

namespace tavrikctl {

void Command::AddGripper(std::string& name) {
    app.add_option("GRIPPER", name, "part of its device string; not needed for an only one")
        ->option_text(" ");
}

CLI::Option* Command::AddSetNumber(int& number) {
    constexpr int kLargestSet = 31;  // higher indices are no parameter sets
    return app.add_option("-s,--set", number, "number of the parameter set (0 if not given)")
        ->check(CLI::Range(0, kLargestSet))
        ->option_text("N");
}

void Command::AddJson(bool& json) {
    app.add_flag("--json", json, "answer in JSON, for programs");
}

}  // namespace tavrikctl
