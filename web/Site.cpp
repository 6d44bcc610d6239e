#include "web/Site.h"

#include <algorithm>
#include <array>
#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

#include "client/Failure.h"
#include "client/Printable.h"
#include "common/LogLine.h"
#include "common/Ports.h"
#include "doctor/Doctor.h"
#include "web/Metrics.h"

namespace tavrik {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

// Files have no limit: they are in memory, and a refusal costs as much.
constexpr double kStreamsPerSecond = 50;
constexpr double kScrapesPerSecond = 50;
constexpr double kRequestsPerSecond = 30;
constexpr double kLogRequestsPerSecond = 50;  // each viewer sends one; served from memory
constexpr double kRefusalLinesPerSecond = 100;
constexpr std::chrono::seconds kCellEventPeriod(1);  // also shows a viewer that nothing has failed
constexpr const char* kTokenHeader = "x-tavrik-control";

std::string Dump(const ordered_json& object) {
    return object.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

HttpResponse Answer(const ordered_json& object, unsigned status = 200) {
    HttpResponse response;
    response.status = status;
    response.type = "application/json";
    response.body = std::make_shared<const std::string>(Dump(object));
    return response;
}

/// A result in words, as the page shows it.
HttpResponse Outcome(bool isDone, const std::string& text, unsigned status = 200) {
    return Answer({{"ok", isDone}, {"text", text}}, status);
}

HttpResponse TooManyRequests() {
    return HttpResponse::Text(kTooManyRequests, "too many requests");
}

/// A member of a request; empty if it is missing or no text.
std::string MemberText(const json& body, const char* member) {
    const json text = body.value(member, json());
    return text.is_string() ? text.get<std::string>() : "";
}

/// Answers with what `call` throws, if it does.
template <typename Call>
HttpResponse CatchFailure(Call call) {
    try {
        return call();
    } catch (const std::exception& failure) {  // also what the libraries throw
        return Outcome(false, failure.what());
    }
}

/// @return the result in words
std::string SwitchOff(const Gripper& gripper) {
    try {
        const int status = gripper.Command("Disable", {});
        return status == 0 ? "done" : gripper.StatusText(status, "Disable");
    } catch (const std::exception& failure) {  // also what the XML-RPC library throws
        return failure.what();
    }
}

ordered_json FindingsJson(const Findings& findings) {
    ordered_json list = ordered_json::array();
    for (const Finding& finding : findings) {
        list.push_back({{"mark", MarkText(finding.mark)},
                        {"subject", Printable(finding.subject)},
                        {"text", Printable(finding.text)},
                        {"remedy", Printable(finding.remedy)}});
    }
    return list;
}

}  // namespace

Site::Site(const SiteOptions& options)
    : daemon(options.daemon),
      guard(options.origins),
      assets(options.assets),
      control(options.allowControl),
      streamLimit(kStreamsPerSecond),
      metricsLimit(kScrapesPerSecond),
      requestLimit(kRequestsPerSecond),
      logLimit(kLogRequestsPerSecond),
      refusalLimit(kRefusalLinesPerSecond),
      poller(
          options.daemon, [this] { return hub.Count(); },
          [this](const Cell& cell, bool isNew) { Publish(cell, isNew); }),
      driveOffs(options.daemon,
                [this](const PageCommand& command, Daemon& daemon) {  // nothing may refuse it
                    return Call(command, Gripper(daemon, command.Device()));
                }),
      motions(options.daemon),
      readings(options.daemon),
      log(options.log) {}

std::optional<HttpResponse> Site::Refuse(const HttpRequest& head) {
    auto refusal = guard.Check(head);
    if (refusal && refusalLimit.Allow()) {
        constexpr std::size_t kShownPath = 80;
        std::string reason = *refusal->body;
        reason.pop_back();
        LogLine() << "Request from " << head.peer << ": "
                  << Printable(head.method.substr(0, kShownPath)) << " "
                  << Printable(head.path.substr(0, kShownPath)) << ": " << reason;
    }
    return refusal;
}

void Site::Handle(const HttpRequest& request, Reply reply) {
    if (request.method == "POST") {
        Post(request, reply);
    } else {
        reply(Get(request));
    }
}

HttpResponse Site::Get(const HttpRequest& request) {
    if ((request.path == "/events" && !streamLimit.Allow()) ||
        (request.path == "/metrics" && !metricsLimit.Allow())) {
        return TooManyRequests();
    }
    if (request.path == "/events") {
        HttpResponse response;
        response.type = "text/event-stream";
        response.stream = hub.Add(CellEvent(poller.Latest()));
        if (!response.stream) {
            return HttpResponse::Text(kUnavailable,
                                      std::to_string(EventHub::kMostViewers) +
                                          " browsers are connected, which is the limit; close one");
        }
        hasNewViewer = true;
        poller.Wake();
        return response;
    }
    if (request.path == "/metrics") {
        HttpResponse response;
        response.type = "text/plain; version=0.0.4; charset=utf-8";
        response.body = std::make_shared<const std::string>(
            FormatMetrics(poller.ReadForMetrics(), statistics, hub.Count(), Clock::now()));
        return response;
    }
    if (const auto file = assets.Find(request.path)) {
        return *file;
    }
    return HttpResponse::Text(kNotFound, "not found");
}

void Site::Post(const HttpRequest& request, const Reply& reply) {
    static constexpr std::array kActions{
        std::pair<std::string_view, Action>{"/api/control/take", &Site::TakeControl},
        std::pair<std::string_view, Action>{"/api/control/keep", &Site::KeepControl},
        std::pair<std::string_view, Action>{"/api/control/release", &Site::ReleaseControl},
        std::pair<std::string_view, Action>{"/api/command", &Site::RunCommand},
        std::pair<std::string_view, Action>{"/api/settings", &Site::ReadSettings},
        std::pair<std::string_view, Action>{"/api/settings/compare", &Site::CompareSettings},
        std::pair<std::string_view, Action>{"/api/settings/restore", &Site::RestoreSettings},
        std::pair<std::string_view, Action>{"/api/log", &Site::ReadLog},
        std::pair<std::string_view, Action>{"/api/findings", &Site::Diagnose},
    };
    const auto* const action =
        std::ranges::find(kActions, request.path, &std::pair<std::string_view, Action>::first);
    if (action == kActions.end()) {
        reply(HttpResponse::Text(kNotFound, "not found"));
        return;
    }
    const json body = json::parse(request.body, nullptr, false);
    if (!body.is_object()) {
        reply(HttpResponse::Text(kBadRequest, "the body is not a JSON object"));
        return;
    }
    // The holder of control may always switch a drive off.
    const bool isDisable = body.value("command", json()) == "disable" && HasControl(request);
    RateLimit& limit = action->second == &Site::ReadLog ? logLimit : requestLimit;
    if (!isDisable && !limit.Allow()) {
        reply(TooManyRequests());
        return;
    }
    try {
        (this->*action->second)(request, body, reply);
    } catch (const Failure& failure) {
        reply(Outcome(false, failure.what(), kBadRequest));
    }
}

void Site::TakeControl(const HttpRequest& request, const json& body, const Reply& reply) {
    std::string token;
    const auto denial = control.Take(MemberText(body, "code"), request.peer, token);
    switch (denial) {
        case Control::Denial::NotAllowed:
            LogLine() << "Control from " << request.peer << ": not allowed";
            reply(Outcome(false, "tavrikweb was started without --allow-control", kForbidden));
            return;
        case Control::Denial::TooManyAttempts:
            LogLine() << "Control from " << request.peer << ": too many wrong codes";
            reply(Outcome(false, "too many wrong codes: wait a minute", kForbidden));
            return;
        case Control::Denial::WrongCode:
            LogLine() << "Control from " << request.peer << ": wrong code";
            reply(Outcome(false, "wrong code; to show it: tavrikweb --code", kForbidden));
            return;
        default:
            break;
    }
    LogLine() << "Control from " << request.peer << ": taken";
    poller.Wake();
    reply(Answer({{"ok", true},
                  {"text", "you have control"},
                  {"token", token},
                  {"holder", control.Json()["holder"]}}));
}

void Site::KeepControl(const HttpRequest& request, const json& /*body*/, const Reply& reply) {
    const bool isHeld = HasControl(request);
    reply(Outcome(isHeld, isHeld ? "" : "you do not have control", isHeld ? 200 : kForbidden));
}

void Site::ReleaseControl(const HttpRequest& request, const json& /*body*/, const Reply& reply) {
    if (HasControl(request)) {
        control.Release(*request.Header(kTokenHeader));
        LogLine() << "Control from " << request.peer << ": given back";
        poller.Wake();
    }
    reply(Outcome(true, ""));
}

bool Site::HasControl(const HttpRequest& request) {
    const std::string* const token = request.Header(kTokenHeader);
    return token != nullptr && control.IsHeldBy(*token);
}

void Site::RunCommand(const HttpRequest& request, const json& body, const Reply& reply) {
    if (!HasControl(request)) {
        LogLine() << "Command from " << request.peer << ": refused, no control";
        reply(Outcome(false, "you do not have control", kForbidden));
        return;
    }
    const PageCommand command(body);
    const Sender sender{request.peer, *request.Header(kTokenHeader)};
    const auto report = [command, sender, reply](const CommandResult& result) {
        LogLine() << "Command from " << sender.peer << " to '" << Printable(command.Device())
                  << "': " << command.Text() << ": " << Printable(result.text);
        reply(Outcome(result.isDone, command.Text() + ": " + result.text));
    };
    bool isTaken = false;
    if (command.IsDisable()) {
        motions.Drop(command.Device());  // they must not move it again
        isTaken = driveOffs.Enqueue(command, report);
    } else {
        isTaken = motions.Enqueue(
            [this, command, sender, report](Daemon& daemon, const std::stop_token& dropped) {
                report(Execute(command, sender, daemon, dropped));
            },
            command.Device());
    }
    if (!isTaken) {
        reply(Outcome(false, "too many commands are waiting", kUnavailable));
    }
}

/// Runs what has waited, unless the sender has lost control or the drive was switched off.
CommandResult Site::Execute(const PageCommand& command, const Sender& sender, Daemon& daemon,
                            const std::stop_token& dropped) {
    const Gripper gripper(daemon, command.Device());
    try {
        daemon.FindGripper(command.Device(), true);
        RequireControl(sender);
    } catch (const std::exception& failure) {  // also what the XML-RPC library throws
        return {false, failure.what()};
    }
    if (dropped.stop_requested()) {
        return {false, "not sent: the drive was switched off"};
    }
    CommandResult result = Call(command, gripper);
    if (dropped.stop_requested()) {
        // The drive off may have overtaken the command.
        return {false, result.text + "; drive off again: " + SwitchOff(gripper)};
    }
    return result;
}

CommandResult Site::Call(const PageCommand& command, const Gripper& gripper) {
    try {
        const int status = Send(command, gripper);
        if (status != 0) {
            return {false, gripper.StatusText(status, command.Method())};
        }
        command.Confirm(gripper);
        return {true, std::string(command.Success())};
    } catch (const std::exception& failure) {  // also what the XML-RPC library throws
        return {false, failure.what()};
    }
}

/// Runs the command and counts it, but only for a gripper that was listed: the name is the page's.
int Site::Send(const PageCommand& command, const Gripper& gripper) {
    const auto before = Clock::now();
    const auto count = [&](int status) {
        const auto time = Clock::now() - before;
        if (poller.Latest().Find(command.Device()) != nullptr) {
            statistics.Add(command.Device(), status, time);
        }
    };
    try {
        const int status = command.Run(gripper);
        count(status);
        return status;
    } catch (...) {
        count(-1);
        throw;
    }
}

/// For what has waited since it was asked for.
/// @throws Failure (NotSent)
void Site::RequireControl(const Sender& sender) {
    if (!control.IsStillHeldBy(sender.token)) {
        throw Failure(ExitStatus::NotSent, "you no longer have control");
    }
}

/// Queues a job that takes seconds.
void Site::DoForGripper(const json& body, const Reply& reply,
                        std::function<ordered_json(const Gripper&, const PageProgress&)> job) {
    const bool isTaken =
        readings.Enqueue([this, name = MemberText(body, "gripper"), job = std::move(job), reply](
                             Daemon& daemon, const std::stop_token& /*dropped*/) {
            const auto progress = [&](std::string_view step, double part) {
                transfer.Set(name, step, part);
            };
            HttpResponse answer = CatchFailure([&] {
                return Answer(job(Gripper(daemon, daemon.FindGripper(name, true)), progress));
            });
            transfer.Clear();
            reply(std::move(answer));
        });
    if (!isTaken) {
        reply(Outcome(false, "too many requests are waiting", kUnavailable));
    }
}

void Site::ReadSettings(const HttpRequest& /*request*/, const json& body, const Reply& reply) {
    DoForGripper(body, reply, ReadPageSettings);
}

void Site::CompareSettings(const HttpRequest& /*request*/, const json& body, const Reply& reply) {
    const auto wanted = ParseSettingsFile(MemberText(body, "file"), MemberText(body, "name"));
    DoForGripper(body, reply,
                 [wanted, name = MemberText(body, "name")](const Gripper& gripper,
                                                           const PageProgress& progress) {
                     return ComparePageSettings(gripper, wanted, name, progress);
                 });
}

void Site::RestoreSettings(const HttpRequest& request, const json& body, const Reply& reply) {
    if (!HasControl(request)) {
        LogLine() << "Restoring of settings from " << request.peer << ": refused, no control";
        reply(Outcome(false, "you do not have control", kForbidden));
        return;
    }
    const auto wanted = ParseSettingsFile(MemberText(body, "file"), MemberText(body, "name"));
    const Sender sender{request.peer, *request.Header(kTokenHeader)};
    DoForGripper(body, reply,
                 [this, wanted, name = MemberText(body, "name"), sender](
                     const Gripper& gripper, const PageProgress& progress) {
                     const auto log = [&](const std::string& change) {
                         LogLine() << "Command from " << sender.peer << " to '" << gripper.Name()
                                   << "': restore " << Printable(change);
                     };
                     return RestorePageSettings(
                         gripper, wanted, name, [&] { RequireControl(sender); }, log, progress);
                 });
}

void Site::ReadLog(const HttpRequest& /*request*/, const json& body, const Reply& reply) {
    const auto number = [&body](const char* member) {
        const json value = body.value(member, json());
        return value.is_number_unsigned() ? value.get<std::uint64_t>() : 0;
    };
    reply(Answer(log.Rows(number("reading"), number("last"), MemberText(body, "gripper"))));
}

void Site::Diagnose(const HttpRequest& /*request*/, const json& /*body*/, const Reply& reply) {
    const bool isTaken =
        readings.Enqueue([this, reply](Daemon& /*daemon*/, const std::stop_token& /*dropped*/) {
            reply(CatchFailure([this] {
                Doctor doctor(daemon, "", "", readings.Ending());
                doctor.Examine();
                return Answer({{"ok", true}, {"findings", FindingsJson(doctor.Result())}});
            }));
        });
    if (!isTaken) {
        reply(Outcome(false, "too many requests are waiting", kUnavailable));
    }
}

EventText Site::CellEvent(const Cell& cell) {
    ordered_json event = cell.Json();
    for (ordered_json& gripper : event["grippers"]) {
        gripper["session"] = statistics.Of(gripper["device"]).Json();
    }
    const auto uptime = std::chrono::floor<std::chrono::seconds>(Clock::now() - start);
    event["list"] = generation.load();
    event["daemon"] = daemon.Address();
    event["ports"] = kPorts;
    event["uptime"] = uptime.count();
    event["viewers"] = hub.Count();
    event["control"] = control.Json();
    return MakeEvent("cell", Dump(event));
}

/// On the poller's thread.
void Site::Publish(const Cell& cell, bool isNew) {
    generation += isNew ? 1 : 0;
    const auto now = Clock::now();
    std::string held = control.Json().dump();
    if (hasNewViewer.exchange(false) || isNew || held != lastControl || now >= nextCellEvent) {
        nextCellEvent = now + kCellEventPeriod;
        lastControl = std::move(held);
        hub.Publish(CellEvent(cell));
    }
    if (cell.reachable) {
        hub.Publish(MakeEvent("values", Dump({{"list", generation.load()},
                                              {"rows", cell.Values(now)},
                                              {"transfer", transfer.Json()}})));
    }
}

}  // namespace tavrik
