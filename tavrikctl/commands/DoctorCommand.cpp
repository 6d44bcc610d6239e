#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "doctor/Bundle.h"
#include "doctor/Doctor.h"
#include "tavrikctl/ReportView.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

namespace {

void Print(const Doctor& doctor, Printer& printer) {
    PrintReport(doctor.Result(), printer);
    printer.Line(doctor.Status() == ExitStatus::Done ? "A gripper answers."
                                                     : "No gripper answers.");
}

template <typename Print>
std::string TextOf(Print print) {
    std::ostringstream text;
    Printer printer(text, false);
    print(printer);
    return text.str();
}

/// Finds out why a gripper does not answer.
class DoctorCommand : public Command {
public:
    DoctorCommand(CLI::App& program, const Endpoint& endpoint)
        : Command(program, "doctor", "Check everything between the robot and the gripper"),
          endpoint(endpoint) {
        AddFile("--bundle", bundle, "also write report, versions and log to FILE (tar.gz)");
        AddFile("--cell", cellFile, "compare the grippers with FILE of 'cell save'");
        app.add_flag("--strict", strict, "fail if anything is marked wrong");
        AddFile("--log", logFile, "file with the daemon's log (default: the journal)");
        AddJson();
    }

    ExitStatus Run(Daemon& /*daemon*/, Printer& printer) override {
        Doctor doctor(endpoint, cellFile, logFile);
        doctor.Examine();
        json ? printer.Json(doctor.Json()) : Print(doctor, printer);
        if (!bundle.empty()) {
            WriteBundle(
                bundle, doctor,
                {{"report.txt", TextOf([&](Printer& text) { Print(doctor, text); })},
                 {"report.json", TextOf([&](Printer& text) { text.Json(doctor.Json()); })}});
            if (!json) {
                printer.Line(bundle +
                             " contains this report and more: review it before you share it.");
            }
        }
        return Status(doctor);
    }

private:
    ExitStatus Status(const Doctor& doctor) const {
        const bool isFine =
            doctor.IsCellAsExpected() &&
            !(strict && std::ranges::any_of(doctor.Result(), [](const Finding& each) {
                  return each.mark == Mark::Wrong;
              }));
        return doctor.Status() == ExitStatus::Done && !isFine ? ExitStatus::NotAsExpected
                                                              : doctor.Status();
    }

    const Endpoint& endpoint;
    std::string bundle;
    std::string cellFile;
    bool strict = false;
    std::string logFile;
};

}  // namespace

std::unique_ptr<Command> MakeDoctorCommand(CLI::App& program, const Endpoint& endpoint) {
    return std::make_unique<DoctorCommand>(program, endpoint);
}

}  // namespace tavrik
