#include <algorithm>
#include <filesystem>

#include "client/ExpectedCell.h"
#include "client/JsonFile.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

namespace {

/// Saves which grippers there are.
class CellSaveCommand : public Command {
public:
    explicit CellSaveCommand(CLI::App& program)
        : Command(program, "save", "Save the names of all grippers to FILE") {
        AddFile("FILE", file, "file to write, JSON")->required()->check(CheckNoFolder);
        app.add_flag("-y,--yes", yes, "replace any file, without a question");
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        const auto grippers = daemon.Grippers();
        if (!yes) {
            ExpectSome(grippers, daemon);
            ExpectReplaceable(grippers);
        }
        const ExpectedCell cell(grippers);
        ReplaceFile(file, cell.FileText());
        printer.Line(file + ": " + std::to_string(cell.Count()) +
                     (cell.Count() == 1 ? " gripper saved" : " grippers saved"));
        return ExitStatus::Done;
    }

private:
    /// If no gripper is found, the cell probably has a fault.
    /// @throws Failure (NoGripper)
    static void ExpectSome(const std::vector<std::string>& grippers, const Daemon& daemon) {
        if (grippers.empty()) {
            throw Failure(ExitStatus::NoGripper, "no grippers found; " +
                                                     DoctorAdvice(daemon.Server()) +
                                                     "; to save an empty cell, add --yes");
        }
    }

    /// A file must not lose a gripper, or something else than a cell, by mistake.
    /// @throws Failure (Usage)
    void ExpectReplaceable(const std::vector<std::string>& grippers) const {
        if (!std::filesystem::exists(file)) {
            return;
        }
        const auto isMissing = [](const ExpectedCell::Difference& each) {
            return each.kind == ExpectedCell::Difference::Kind::Missing;
        };
        try {
            const auto differences = ExpectedCell::FromFile(file).Compare(grippers);
            const auto lost = std::ranges::find_if(differences, isMissing);
            if (lost == differences.end()) {
                return;
            }
            throw Failure(ExitStatus::Usage,
                          file + " has '" + lost->expected + "', which is missing now");
        } catch (const Failure& failure) {
            throw Failure(ExitStatus::Usage,
                          std::string(failure.what()) + "; to replace the file, add --yes");
        }
    }

    std::string file;
    bool yes = false;
};

}  // namespace

std::unique_ptr<Command> MakeCellCommand(CLI::App& program) {
    return std::make_unique<CellSaveCommand>(
        AddParent(program, "cell", "Save which grippers there should be", "save"));
}

}  // namespace tavrik
