#include "simulator/ReplayingMaster.h"

#include <algorithm>
#include <utility>

namespace simulator {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr unsigned kDeviationCode = 99;  // not used by masters
constexpr std::size_t kPrintedDeviations = 100;
constexpr milliseconds kLongestWait{1000000000};  // limit of the command "wait"

std::string WaitCommands(milliseconds time) {
    std::string commands;
    for (; time > milliseconds::zero(); time -= std::min(time, kLongestWait)) {
        commands += "wait " + std::to_string(std::min(time, kLongestWait).count()) + "\n";
    }
    return commands;
}

}  // namespace

ReplayingMaster::ReplayingMaster(std::vector<ReplayStep> steps, Timing timing, Context context)
    : steps(std::move(steps)), timing(timing), context(std::move(context)) {}

/// The commands for the plug changes from `step` to the next plug.
std::string ReplayingMaster::PlugCommands(std::size_t step, microseconds since) const {
    std::string commands;
    for (; step < steps.size() && !IsTransfer(steps[step]); ++step) {
        commands += WaitCommands(std::chrono::round<milliseconds>(steps[step].time - since));
        commands += std::string(RecordedWord(steps[step].kind)) + " " +
                    std::to_string(context.number) + "\n";
        since = steps[step].time;
        if (steps[step].kind == RecordedKind::Plug) {
            break;
        }
    }
    return commands;
}

void ReplayingMaster::PowerUp(TimePoint now) {
    const auto plug =
        std::find_if(steps.begin() + static_cast<std::ptrdiff_t>(next), steps.end(),
                     [](const ReplayStep& step) { return step.kind == RecordedKind::Plug; });
    next = static_cast<std::size_t>(plug - steps.begin());
    if (plug != steps.end()) {
        anchorTime = plug->time;
        ++next;
    }
    anchor = now;
    present = true;
    requests.Clear();
    texts.Clear();
}

void ReplayingMaster::HangUp(bool /*reported*/, TimePoint /*now*/) {
    present = false;
}

void ReplayingMaster::Receive(std::string_view bytes, TimePoint now) {
    for (const std::string& line : requests.Add(bytes)) {
        if (present && !IsEcho(line)) {
            HandleLine(line, now);
        }
    }
}

void ReplayingMaster::HandleLine(const std::string& line, TimePoint now) {
    std::size_t expected = next;
    while (expected < steps.size() && steps[expected].kind == RecordedKind::FromMaster) {
        ++expected;
    }
    if (expected < steps.size() && steps[expected].kind == RecordedKind::ToMaster &&
        steps[expected].bytes == line) {
        Answer(expected, now);
    } else {
        ReportDeviation(line, expected, now);
    }
}

void ReplayingMaster::Answer(std::size_t request, TimePoint now) {
    std::size_t lastData = request;
    for (std::size_t step = next; step < request; ++step) {
        lastData = IsProcessData(steps[step].bytes) ? step : lastData;
    }
    for (; next < request; ++next) {
        if (next == lastData || !IsProcessData(steps[next].bytes)) {
            texts.Push(steps[next].bytes, now);
        }
    }
    anchor = now;
    anchorTime = steps[request].time;
    for (const RecordedAnswer& answer : steps[request].answers) {
        texts.Push(answer.text, timing == Timing::AtOnce ? now : now + answer.delay);
    }
    ++next;
    ++playedRequests;
}

void ReplayingMaster::ReportDeviation(const std::string& line, std::size_t expected,
                                      TimePoint now) {
    const auto request = ParseRequest(line);
    if (request) {
        texts.Push("ERR " + request->key + " " + std::to_string(kDeviationCode) + "\n", now);
    }
    if (++deviations > kPrintedDeviations) {
        return;
    }
    Print("deviation: " + Escape(line) + " instead of " + Describe(expected) +
          (request ? "; answered with ERR " + std::to_string(kDeviationCode) : "; not answered"));
    if (deviations == kPrintedDeviations) {
        Print("further deviations are counted, but not printed");
    }
}

std::string ReplayingMaster::Describe(std::size_t step) const {
    if (step == steps.size()) {
        return "nothing: " + context.recording + " has no more requests";
    }
    return (!IsTransfer(steps[step]) ? std::string(RecordedWord(steps[step].kind))
                                     : Escape(steps[step].bytes)) +
           " (" + context.recording + ":" + std::to_string(steps[step].line) + ")";
}

void ReplayingMaster::Print(const std::string& text) const {
    context.print("replay " + std::to_string(context.number) + ": " + text);
}

TimePoint ReplayingMaster::DueOf(const ReplayStep& step) const {
    return anchor + (step.time - anchorTime);
}

/// True if the next step does not wait for a request.
bool ReplayingMaster::NextIsTimed() const {
    return present && next < steps.size() && steps[next].kind != RecordedKind::ToMaster;
}

std::string ReplayingMaster::NextText(TimePoint now) {
    while (NextIsTimed() && DueOf(steps[next]) <= now) {
        PlayStep();
    }
    std::string text = texts.Pop(now);
    if (next == steps.size() && text.empty() && !texts.NextDue() &&
        !std::exchange(endPrinted, true)) {
        Print(context.recording + " has ended");
    }
    return text;
}

void ReplayingMaster::PlayStep() {
    if (IsTransfer(steps[next])) {
        texts.Push(steps[next].bytes, DueOf(steps[next]));
        ++next;
        return;
    }
    context.command(PlugCommands(next, steps[next].time));
    present = false;
    while (next < steps.size() && steps[next].kind != RecordedKind::Plug) {
        ++next;
    }
}

std::optional<TimePoint> ReplayingMaster::NextDue() const {
    auto due = texts.NextDue();
    if (NextIsTimed()) {
        const TimePoint nextDue = DueOf(steps[next]);
        due = due ? std::min(*due, nextDue) : nextDue;
    }
    return due;
}

std::size_t ReplayingMaster::RecordedRequestCount() const {
    return static_cast<std::size_t>(
        std::ranges::count(steps, RecordedKind::ToMaster, &ReplayStep::kind));
}

}  // namespace simulator
