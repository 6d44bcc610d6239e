#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "client/Gripper.h"
#include "client/ProcessData.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

/// One row for each gripper.
class ListCommand : public Command {
public:
    explicit ListCommand(CLI::App& program);
    ExitStatus Run(Daemon& daemon, Printer& printer) override;

private:
    struct Entry {
        std::string gripper;  // device string
        ProcessData data;
        Model model;
        std::string note;
        std::optional<bool> answers;  // whether its master does; nothing if not asked
    };

    Entry Look(const Gripper& gripper) const;
    static void PrintTable(const std::vector<Entry>& entries, Printer& printer);
    static void PrintJson(const std::vector<Entry>& entries, Printer& printer);

    bool passive = false;
    bool json = false;
};

}  // namespace tavrik
