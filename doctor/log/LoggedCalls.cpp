#include "doctor/log/LoggedCalls.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "client/Failure.h"

namespace tavrik {

namespace {

using Outcome = LoggedCall::Outcome;

constexpr std::uint32_t kOk = 0;
constexpr std::uint32_t kNotPossible = 3;
constexpr std::uint32_t kTimeout = 5;
constexpr std::uint32_t kNotSent = 12;
constexpr std::string_view kModelKey = "DEVINFO";

// Only a log that was tampered with has more.
constexpr std::size_t kMostCallThreads = 4096;

/// A request is logged after it was written, so its reply may be logged first, and much more by
/// other threads. Older replies are leftovers: more lines are hardly logged while a thread waits
/// for a processor.
constexpr std::uint64_t kMostLinesAhead = 5000;

/// A write takes up to 4 s. A call that has not gone on by then has ended.
constexpr std::chrono::seconds kLongestPause(5);

/// The daemon logs the result of a reading at once.
constexpr std::chrono::seconds kNextLine(1);

LogOwner OwnerOf(const std::vector<LinkPointer>& links) {
    if (links.size() == 1) {
        return {links.front()->node, links.front()->Gripper()};
    }
    LogOwner owner;
    for (const LinkPointer& link : links) {
        const LogOwner one{link->node, link->Gripper()};
        if (!one.IsKnown()) {
            return {};  // the others alone would mislead
        }
        owner.candidates.push_back(one.Name());
    }
    return owner;
}

/// Whether a request for `key` may belong to the call that has asked for the model.
bool MayFollowCheck(std::string_view key) {
    return key == "PDOUT" || key.starts_with("PARAM[64][") || NeedsModelCheck(key);
}

Outcome OutcomeOf(std::uint32_t status) {
    return status == kOk        ? Outcome::Done
           : status == kTimeout ? Outcome::TimedOut
                                : Outcome::Refused;
}

std::string ReasonOf(std::uint32_t status, const std::optional<LoggedReply>& reply) {
    switch (status) {
        case kOk:
            return "";
        case kTimeout:
            return reply && reply->text.empty() ? "refused" : "no answer";
        case kNotSent:
            return reply ? "refused" : "not sent";
        default:
            return "refused";
    }
}

/// @param isRead whether the reply certainly has a value
/// @param isAssigned whether it certainly has none
LoggedRequest RequestOf(const std::string& key, std::uint32_t status,
                        const std::optional<LoggedReply>& reply, bool isRead, bool isAssigned) {
    LoggedRequest request{key, key};
    request.isRead = isRead;
    request.isAssigned = isAssigned && status == kOk;
    if (!reply) {
        return request;
    }
    if (!reply->text.empty()) {
        request.text = reply->text;
        request.text.erase(request.text.find_last_not_of(" \r\n") + 1);
    }
    if (status == kTimeout && !reply->text.empty()) {  // the text is the request
        request.isRead = request.text.ends_with('?');
        request.isAssigned = !request.isRead;
    }
    request.processOutput = reply->before;
    return request;
}

/// Whether `request` begins another call than the one that has asked for the model.
bool IsOtherCall(const LoggedRequest& request) {
    constexpr unsigned kReference = 0x04;
    if (request.key.starts_with("PARAM[64][") && !NeedsModelCheck(request.key)) {
        return request.isRead;  // only setting an override asks for the model
    }
    const auto value = Between("PDOUT=[", "]", request.text);
    if (request.model == nullptr || request.model->hasLedsAndHoldfast || !value) {
        return false;
    }
    unsigned first = 0;
    std::from_chars(value->data(), value->data() + value->size(), first, 16);
    return (first & kReference) == 0;  // such a model has no other checked motion than Reference
}

}  // namespace

bool LoggedCalls::Take(const LogMoment& now, std::uint64_t thread, std::string_view message) {
    if (threads.size() >= kMostCallThreads && !threads.contains(thread)) {
        End();
    }
    Thread& taken = threads[thread];
    const bool isFolded = TakeLine(now, thread, taken, message);
    taken.lastLine = now.line;
    return isFolded;
}

bool LoggedCalls::TakeLine(const LogMoment& now, std::uint64_t id, Thread& thread,
                           std::string_view message) {
    if (thread.failed && !message.starts_with("Active commands: ")) {
        const bool isAbsent = message.starts_with("Parameter ") && message.ends_with(" not found");
        FinishFailed(thread, isAbsent);
        if (isAbsent) {
            return true;
        }
    }
    if (const auto sent = After("New command ", message)) {
        Begin(now, id, thread, sent->substr(0, sent->find(". Active commands: ")));
    } else if (const auto ended = After("Pending command ", message)) {
        Finish(now, id, thread, *ended);
    } else if (const GripperModel* const model = DetectedModel(message);
               model != nullptr && thread.check) {
        thread.check->model = model;
        std::erase_if(thread.check->match.links, [&](const LinkPointer& link) {
            return link->model != nullptr && link->model != model;
        });
        if (!model->hasForceAndReference) {
            FinishCheck(id, thread);
        }
    } else if (!message.starts_with("Active commands: ")) {
        return !links.IsLinkThread(id) && TakeFailure(now, id, thread, message);
    }
    return true;
}

/// Takes a line of a call that sends nothing, or cannot.
bool LoggedCalls::TakeFailure(const LogMoment& now, std::uint64_t id, Thread& thread,
                              std::string_view message) {
    if (message.starts_with("Timeout writing to ") || message.starts_with("Failed to write to ") ||
        message.starts_with("Timeout while trying to acquire lock ")) {
        thread.note = message;
    } else if (message.starts_with("Failed to send command ")) {
        thread.isSent = false;
    } else if (message == "Device has been removed") {
        thread.check.reset();  // it may be of another call, which was refused
        Report(now, id, {},
               {.outcome = Outcome::Refused, .status = kNotSent, .note = "master unplugged"});
    } else if (const auto device = Between("Device '", "' not found", message)) {
        thread.unknownDevice = *device;
        thread.owner = {};
    } else if (message.ends_with(": Failed to get PELLIX handle")) {
        LogRow row{now.stamp, LogKind::Call, {}, id};
        row.owner.gripper = std::exchange(thread.unknownDevice, "");
        row.call = LoggedCall{.method = std::string(message.substr(0, message.find(':'))),
                              .outcome = Outcome::Refused,
                              .status = kNotPossible,
                              .note = std::exchange(thread.note, "")};
        if (row.call->note.empty()) {
            row.call->note = "no such gripper";
        }
        listener.onCall(std::move(row));
    } else {
        return false;
    }
    return true;
}

void LoggedCalls::Begin(const LogMoment& now, std::uint64_t id, Thread& thread,
                        std::string_view key) {
    SetKey(id, thread, key);
    const std::uint64_t ahead = now.line > kMostLinesAhead ? now.line - kMostLinesAhead : 0;
    thread.window = std::max(thread.lastLine, ahead);
    thread.start = now;
}

void LoggedCalls::SetKey(std::uint64_t id, Thread& thread, std::string_view key) {
    if (thread.check && !MayFollowCheck(key)) {
        FinishCheck(id, thread);
    }
    thread.key = key;
}

/// @param text "PDOUT deleted (Status: 0)."
void LoggedCalls::Finish(const LogMoment& now, std::uint64_t id, Thread& thread,
                         std::string_view text) {
    constexpr std::string_view kStatus = " deleted (Status: ";
    const std::size_t end = text.find(kStatus);
    if (end == std::string_view::npos) {
        return;
    }
    const std::string_view number = text.substr(end + kStatus.size());
    std::uint32_t status = 0;
    std::from_chars(number.data(), number.data() + number.size(), status);
    const bool wasBegun = thread.key == text.substr(0, end);
    if (!wasBegun) {  // not sent, or its beginning is not in the log
        SetKey(id, thread, text.substr(0, end));
        thread.window = thread.lastLine;
        thread.start = {};
    }
    Match match;
    const bool isCut = !wasBegun && thread.lastLine == 0;  // so may be its reply
    if (thread.isSent && !isCut) {
        const bool isChecked = thread.check && thread.check->match.links.size() == 1;
        match = Find(links.IsLinkUnknown(id)                    ? links.LinksWithoutStateThread()
                     : isChecked && NeedsModelCheck(thread.key) ? thread.check->match.links
                                                                : links.All(),
                     thread.key, status, thread.window);
    } else if (!thread.isSent) {
        status = kNotSent;
    }
    FinishRequest(now, id, thread, std::move(match), status);
    thread.key.clear();
    thread.isSent = true;
    thread.note.clear();
}

void LoggedCalls::FinishRequest(const LogMoment& now, std::uint64_t id, Thread& thread, Match match,
                                std::uint32_t status) {
    if (links.IsLinkThread(id)) {
        if (match.links.size() == 1) {
            links.Attach(id, match.links.front());
            SetOwner(id, OwnerOf(match.links));
        }
        return;
    }
    if (thread.key == kModelKey) {
        const bool hasProcessOutput =
            match.links.size() == 1 && !match.links.front()->processOutput.empty();
        thread.check =
            Check{std::move(match), thread.start, now, status, nullptr, hasProcessOutput};
        SetOwner(id, OwnerOf(thread.check->match.links));
        return;
    }
    LoggedRequest request =
        RequestOf(thread.key, status, match.reply, match.allHaveValue, match.noneHasValue);
    if (thread.check) {
        request.model = thread.check->model;
        const auto& checked = thread.check->match.links;
        const bool isElsewhere =
            checked.size() == 1 && !match.links.empty() &&
            std::ranges::find(match.links, checked.front()) == match.links.end();
        if (isElsewhere || IsOtherCall(request)) {
            FinishCheck(id, thread);
        }
    }
    LogMoment start = thread.start;
    if (const auto check = std::exchange(thread.check, std::nullopt)) {
        request.followsModelCheck = true;
        start = check->start;
        if (!thread.isSent && NeedsModelCheck(thread.key)) {
            match.links = check->match.links;
        }
    }
    LoggedCall call{MethodsOf(request), request.text, OutcomeOf(status), status};
    call.note = thread.note.empty() ? ReasonOf(status, match.reply) : thread.note;
    call.isExact = now.isExact;
    if (match.reply && match.reply->age.count() != 0) {
        call.duration = match.reply->age;
        call.isExact = true;
    } else if (start.line != 0) {
        call.duration = now.time - start.time;
    }
    LogRow row = RowOf(now, id, match, std::move(call));
    if (status != kOk && thread.key.starts_with("PARAM[")) {
        thread.failed = Failed{std::move(row), std::move(request), now.time};
    } else {
        listener.onCall(std::move(row));
    }
}

/// @param isAbsent whether it was a reading of a value that the daemon does not have
void LoggedCalls::FinishFailed(Thread& thread, bool isAbsent) const {
    Failed failed = std::move(*thread.failed);
    thread.failed.reset();
    if (isAbsent) {
        LoggedCall& call = *failed.row.call;
        failed.request.isRead = true;
        call.method = MethodsOf(failed.request);
        call.note += "; returned 0";
        call.isAbsent = true;
    }
    listener.onCall(std::move(failed.row));
}

/// A call that has asked for the model and sent nothing else was refused.
void LoggedCalls::FinishCheck(std::uint64_t id, Thread& thread) {
    const Check check = std::move(*thread.check);
    thread.check.reset();
    LoggedCall call{"", std::string(kModelKey), Outcome::Refused};
    if (check.status != kOk) {
        call.outcome = OutcomeOf(check.status);
        call.status = check.status;
        call.note = ReasonOf(check.status, check.match.reply);
    } else if (check.model == nullptr || !check.model->hasForceAndReference ||
               check.hasProcessOutput) {
        call.status = kNotPossible;
        call.note = "not supported by its model";
    } else {
        call.note = "3 or 21: not supported by its model, or no process data";
    }
    call.isExact = check.end.isExact;
    if (check.start.line != 0) {
        call.duration = check.end.time - check.start.time;
    }
    Report(check.end, id, check.match, std::move(call));
}

void LoggedCalls::Report(const LogMoment& now, std::uint64_t id, const Match& match,
                         LoggedCall call) {
    listener.onCall(RowOf(now, id, match, std::move(call)));
}

LogRow LoggedCalls::RowOf(const LogMoment& now, std::uint64_t id, const Match& match,
                          LoggedCall call) {
    LogRow row{now.stamp, LogKind::Call, OwnerOf(match.links), id};
    if (const LinkPointer only = links.OnlyLink(); only && match.links.empty()) {
        row.owner = OwnerOf({only});
    }
    TrackOwner(threads[id], row.owner);
    SetOwner(id, row.owner);
    row.call = std::move(call);
    return row;
}

void LoggedCalls::SetOwner(std::uint64_t id, const LogOwner& owner) {
    threads[id].owner = owner;
    listener.onOwner(id, owner);
}

/// A program usually calls one gripper through a connection, but need not.
void LoggedCalls::TrackOwner(Thread& thread, LogOwner& owner) {
    const std::string& name = owner.Name();
    if (std::ranges::find(owner.candidates, thread.onlyOwner) != owner.candidates.end() &&
        !thread.servesSeveral) {
        owner.likely = thread.onlyOwner;
    } else if (!name.empty()) {
        thread.servesSeveral =
            thread.servesSeveral || (!thread.onlyOwner.empty() && thread.onlyOwner != name);
        thread.onlyOwner = name;
    }
}

/// Finds the masters with a reply that may be the one. Replies that certainly belong to ended
/// requests are forgotten.
LoggedCalls::Match LoggedCalls::Find(const std::vector<LinkPointer>& among, std::string_view key,
                                     std::uint32_t status, std::uint64_t window) {
    Match match{{}, {}, true, true};
    std::vector<std::uint64_t> possible;
    for (const LinkPointer& link : among) {
        bool isFirst = true;
        for (const LoggedReply& reply : link->replies) {
            if (reply.key != key || reply.status != status || reply.begin <= window) {
                continue;
            }
            match.allHaveValue = match.allHaveValue && !reply.text.empty();
            match.noneHasValue = match.noneHasValue && reply.text.empty();
            if (std::exchange(isFirst, false)) {
                match.links.push_back(link);
                match.reply = reply;
            }
            possible.push_back(reply.line);
        }
    }
    if (match.links.empty()) {
        return {};
    }
    if (match.links.size() == 1) {
        match.links.front()->Drop(match.reply->line);
    }
    if (possible.size() > 1) {
        match.reply.reset();
    }
    const auto settled = claims.Add(std::move(possible));
    for (const std::uint64_t line : settled) {
        for (const LinkPointer& link : links.All()) {
            link->Drop(line);
        }
    }
    return match;
}

void LoggedCalls::Expire(const LogMoment& now) {
    for (auto& [id, thread] : threads) {
        if (thread.check && now.time - thread.check->end.time > kLongestPause) {
            FinishCheck(id, thread);
        }
        if (thread.failed && now.time - thread.failed->end > kNextLine) {
            FinishFailed(thread, false);
        }
    }
}

void LoggedCalls::End() {
    for (auto& [id, thread] : threads) {
        if (thread.failed) {
            FinishFailed(thread, false);
        }
        if (thread.check) {
            FinishCheck(id, thread);
        }
    }
    threads.clear();
}

LogOwner LoggedCalls::LastOwner(std::uint64_t thread) const {
    const auto found = threads.find(thread);
    return found == threads.end() ? LogOwner() : found->second.owner;
}

bool LoggedCalls::IsAwaited(std::uint64_t thread) const {
    const auto found = threads.find(thread);
    return found != threads.end() && !found->second.key.empty();
}

}  // namespace tavrik
