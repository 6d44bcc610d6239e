#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "client/Gripper.h"
#include "client/MethodTable.h"
#include "client/Nearest.h"
#include "client/Printable.h"
#include "client/Values.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

namespace {

constexpr char kGripperLetter = 'g';
constexpr char kArrayLetter = 'a';
constexpr const char* kNoGripper = "---";  // the daemon takes it as: no gripper

/// All methods in two columns, for the help text.
std::string MethodList() {
    constexpr std::size_t kColumnWidth = 40;
    std::string text = "Methods:";
    bool left = true;
    for (const Method& method : Methods()) {
        std::string usage = Usage(method);
        usage.resize(std::max(usage.size(), left ? kColumnWidth : 0), ' ');
        text += (left ? "\n  " : "") + usage;
        left = !left;
    }
    return text + "\n";
}

/// The nearest methods, otherwise where all are listed.
std::string Hint(const std::string& name) {
    std::vector<std::string> names;
    for (const Method& method : Methods()) {
        names.emplace_back(method.name);
    }
    const std::string question = DidYouMean(name, names);
    return question.empty() ? "; see tavrikctl call --help" : question;
}

/// Rejects an empty device string: the daemon takes it for a gripper whose name it does not know
/// yet, so that an unset variable would move one.
void RefuseEmptyGripper(bool isEmpty) {
    if (isEmpty) {
        throw Failure(ExitStatus::Usage, "GRIPPER: must not be empty");
    }
}

/// The same for the calls in the array of system.multicall.
void RefuseEmptyGrippers(const std::string& calls) {
    for (const auto& call : nlohmann::json::parse(calls, nullptr, false)) {
        if (!call.is_object() || !call.contains("methodName") || !call["methodName"].is_string()) {
            continue;
        }
        const Method* const method = FindMethod(call["methodName"].get<std::string>());
        const auto parameters = call.value("params", nlohmann::json());
        RefuseEmptyGripper(method != nullptr && method->parameters.starts_with(kGripperLetter) &&
                           parameters.is_array() && !parameters.empty() &&
                           parameters[0].is_string() &&
                           parameters[0].get_ref<const std::string&>().empty());
    }
}

/// Calls any method, with its arguments as text.
class CallCommand : public Command {
public:
    explicit CallCommand(CLI::App& program)
        : Command(program, "call", "Call any method of the daemon") {
        app.add_option("METHOD", methodName, "see below")->required();
        // One by one: "[a,b]" would be taken for two elements of a list.
        for (std::string& text : texts) {
            const std::string name = "ARG" + std::to_string(&text - texts.data() + 1);
            options.push_back(
                app.add_option(name, text, "argument of the method")->option_text(" "));
        }
        app.add_flag("--exact", exact, "send the device string exactly as typed");
        AddJson();
        app.footer(MethodList);
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        const Method& method = ChosenMethod();
        const std::string gripper = ChosenGripper(method, daemon);
        const xmlrpc_c::value answer = daemon.Call(methodName, Parameters(method, gripper));
        const auto value = ToJson(answer);
        const int status = method.answersStatus ? Daemon::As<int>(methodName, answer) : 0;
        if (json || !(value.is_string() || method.answersStatus)) {
            printer.Json(value);
        } else if (status == 0) {
            printer.Line(value.is_string() ? Printable(value.get<std::string>())
                                           : "0: " + StatusText(status));
        }
        if (status != 0) {
            const bool isExplained = ExitStatusFor(status) == ExitStatus::NotPossible;
            throw Failure(ExitStatusFor(status),
                          methodName + ": " +
                              (isExplained ? Gripper(daemon, gripper).WhyNotPossible(methodName)
                                           : StatusText(status)));
        }
        return ExitStatus::Done;
    }

private:
    std::vector<std::string> Arguments() const {
        std::vector<std::string> arguments;
        for (std::size_t i = 0; i < texts.size() && options[i]->count() > 0; ++i) {
            arguments.push_back(texts[i]);
        }
        return arguments;
    }

    const Method& ChosenMethod() const {
        const Method* const method = FindMethod(methodName);
        if (method == nullptr) {
            throw Failure(ExitStatus::Usage,
                          "unknown method '" + Printable(methodName) + "'" + Hint(methodName));
        }
        const bool hasMore = Arguments().size() > method->parameters.size();
        if (hasMore || Arguments().size() < method->parameters.size()) {
            const bool mayBeBlank = hasMore && method->parameters.starts_with(kGripperLetter);
            throw Failure(ExitStatus::Usage,
                          "wrong number of arguments, usage: call " + Usage(*method) +
                              (mayBeBlank ? "; quote a GRIPPER that contains blanks" : ""));
        }
        return *method;
    }

    /// The device string to send; empty if the method takes none.
    std::string ChosenGripper(const Method& method, Daemon& daemon) const {
        if (!method.parameters.starts_with(kGripperLetter)) {
            return "";
        }
        const std::string& name = texts.front();
        RefuseEmptyGripper(name.empty());
        return exact || name == kNoGripper ? name : daemon.FindGripper(name);
    }

    xmlrpc_c::paramList Parameters(const Method& method, const std::string& gripper) const {
        const std::vector<std::string> arguments = Arguments();
        xmlrpc_c::paramList parameters;
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            const char letter = method.parameters[i];
            parameters.add(
                ParseArgument(letter, letter == kGripperLetter ? gripper : arguments[i]));
            if (letter == kArrayLetter) {
                RefuseEmptyGrippers(arguments[i]);
            }
        }
        return parameters;
    }

    std::string methodName;
    std::array<std::string, 3> texts;   // as many as any method takes
    std::vector<CLI::Option*> options;  // of the texts; the app's
    bool exact = false;
};

}  // namespace

std::unique_ptr<Command> MakeCallCommand(CLI::App& program) {
    return std::make_unique<CallCommand>(program);
}

}  // namespace tavrik
