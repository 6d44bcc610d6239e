#include "tools/commands/DoctorCommand.h"

#include <nlohmann/json.hpp>

#include "tools/Arguments.h"
#include "tools/doctor/Bundle.h"
#include "tools/doctor/Doctor.h"

namespace tavrikctl {

DoctorCommand::DoctorCommand(CLI::App& program, const Endpoint& endpoint)
    : Command(program, "doctor", "Tell what is right and wrong between robot and gripper"),
      server(endpoint) {
    app.add_option("--bundle", bundle, "also write it to FILE, a tar.gz with versions and log")
        ->check(IsThere)
        ->option_text("FILE");
    AddJson(json);
}

ExitStatus DoctorCommand::Run(Daemon& /*daemon*/, Printer& printer) {
    Doctor doctor(server);
    doctor.Examine();
    json ? printer.Json(doctor.Json()) : doctor.Print(printer);
    if (!bundle.empty()) {
        WriteBundle(bundle, doctor);
        if (!json) {
            printer.Line(bundle + " has this and more: look through it before you pass it on.");
        }
    }
    return doctor.Status();
}

}  // namespace tavrikctl
