#include "tavrikctl/commands/DoctorCommand.h"

#include <nlohmann/json.hpp>
#include <sstream>

#include "doctor/Bundle.h"
#include "doctor/Doctor.h"
#include "tavrikctl/Options.h"
#include "tavrikctl/Report.h"

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

}  // namespace

DoctorCommand::DoctorCommand(CLI::App& program, const Endpoint& endpoint)
    : Command(program, "doctor", "Check everything between the robot and the gripper"),
      server(endpoint) {
    app.add_option("--bundle", bundle,
                   "also write the report, versions and the log to FILE (tar.gz)")
        ->check(CheckNotEmpty)
        ->option_text("FILE");
    AddJson(json);
}

ExitStatus DoctorCommand::Run(Daemon& /*daemon*/, Printer& printer) {
    Doctor doctor(server);
    doctor.Examine();
    json ? printer.Json(doctor.Json()) : Print(doctor, printer);
    if (!bundle.empty()) {
        WriteBundle(bundle, doctor,
                    {{"report.txt", TextOf([&](Printer& text) { Print(doctor, text); })},
                     {"report.json", TextOf([&](Printer& text) { text.Json(doctor.Json()); })}});
        if (!json) {
            printer.Line(bundle + " contains this report and more: review it before you share it.");
        }
    }
    return doctor.Status();
}

}  // namespace tavrik
