#include "tools/commands/CallCommand.h"

#include <nlohmann/json.hpp>

#include "tools/Arguments.h"
#include "tools/Failure.h"
#include "tools/JsonValue.h"
#include "tools/MethodTable.h"
#include "tools/Printable.h"
#include "tools/StatusText.h"

namespace tavrikctl {

CallCommand::CallCommand(CLI::App& program)
    : Command(program, "call", "Call any method of the daemon") {
    app.add_option("METHOD", methodName, "its name")->required();
    app.add_option("ARG", arguments, "its arguments");
    app.add_flag("--exact", exact, "send the device string as it is typed");
    app.add_flag("--json", json, "for programs");
}

ExitStatus CallCommand::Run(Daemon& daemon, Printer& printer) {
    const Method* const method = FindMethod(methodName);
    if (method == nullptr) {
        throw Failure(ExitStatus::Usage, "there is no method " + Printable(methodName));
    }
    if (arguments.size() != method->parameters.size()) {
        throw Failure(
            ExitStatus::Usage,
            methodName + " takes " + std::to_string(method->parameters.size()) + " arguments");
    }
    xmlrpc_c::paramList parameters;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const char letter = method->parameters[i];
        const bool isName = letter == 'g' && !exact;
        parameters.add(
            ParseArgument(letter, isName ? daemon.FindGripper(arguments[i]) : arguments[i]));
    }
    const xmlrpc_c::value answer = daemon.Call(methodName, parameters);
    const auto text = ToJson(answer);
    if (json || !text.is_string()) {
        printer.Json(text);
    } else {
        printer.Line(Printable(text.get<std::string>()));
    }
    if (method->answer == Answer::Status && text != 0) {
        const int status = text.get<int>();
        throw Failure(ExitStatusOf(status), StatusText(status));
    }
    return ExitStatus::Done;
}

}  // namespace tavrikctl
