#include "simulator/ReplayingMaster.h"

#include <algorithm>
#include <utility>

#include "simulator/LineProtocol.h"
#include "simulator/TextTools.h"

namespace simulator {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr unsigned kDeviationCode = 99;  // of no master's own
constexpr std::size_t kToldDeviations = 100;
constexpr milliseconds kLongestWait{1000000000};  // that the command takes

std::string WaitCommands(milliseconds time) {
    std::string commands;
    for (; time > milliseconds::zero(); time -= std::min(time, kLongestWait)) {
        commands += "wait " + std::to_string(std::min(time, kLongestWait).count()) + "\n";
    }
    return commands;
}

}  // namespace

ReplayingMaster::ReplayingMaster(std::vector<ReplayStep> recordedSteps, Answers answers,
                                 Surroundings initialSurroundings)
    : steps(std::move(recordedSteps)),
      answerTimes(answers),
      surroundings(std::move(initialSurroundings)) {}

/// From a change of the plug on, up to and with the next plug.
std::string ReplayingMaster::PlugCommands(std::size_t step, microseconds since) const {
    std::string commands;
    for (; step < steps.size() && !IsTransfer(steps[step]); ++step) {
        commands += WaitCommands(std::chrono::round<milliseconds>(steps[step].time - since));
        commands += std::string(RecordedWord(steps[step].kind)) + " " +
                    std::to_string(surroundings.number) + "\n";
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
        Deviate(line, expected, now);
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
        texts.Push(answer.text, answerTimes == Answers::AtOnce ? now : now + answer.delay);
    }
    ++next;
    ++playedRequests;
}

void ReplayingMaster::Deviate(const std::string& line, std::size_t expected, TimePoint now) {
    const auto request = ParseRequest(line);
    if (request) {
        texts.Push("ERR " + request->key + " " + std::to_string(kDeviationCode) + "\n", now);
    }
    if (++deviations > kToldDeviations) {
        return;
    }
    Tell("deviation: " + Escape(line) + " instead of " + Describe(expected) +
         (request ? "; answered by ERR " + std::to_string(kDeviationCode) : "; not answered"));
    if (deviations == kToldDeviations) {
        Tell("further deviations are only counted");
    }
}

std::string ReplayingMaster::Describe(std::size_t step) const {
    if (step == steps.size()) {
        return "nothing: " + surroundings.recording + " has no more requests";
    }
    return (!IsTransfer(steps[step]) ? std::string(RecordedWord(steps[step].kind))
                                     : Escape(steps[step].bytes)) +
           " (" + surroundings.recording + ":" + std::to_string(steps[step].line) + ")";
}

void ReplayingMaster::Tell(const std::string& text) const {
    surroundings.tell("replay " + std::to_string(surroundings.number) + ": " + text);
}

TimePoint ReplayingMaster::DueOf(const ReplayStep& step) const {
    return anchor + (step.time - anchorTime);
}

/// Whether the next step does not wait for COMMAND.
bool ReplayingMaster::NextGoesByTime() const {
    return present && next < steps.size() && steps[next].kind != RecordedKind::ToMaster;
}

std::string ReplayingMaster::NextText(TimePoint now) {
    while (NextGoesByTime() && DueOf(steps[next]) <= now) {
        PlayStep();
    }
    std::string text = texts.Pop(now);
    if (next == steps.size() && text.empty() && !texts.NextDue() && !std::exchange(endTold, true)) {
        Tell(surroundings.recording + " has ended");
    }
    return text;
}

void ReplayingMaster::PlayStep() {
    if (IsTransfer(steps[next])) {
        texts.Push(steps[next].bytes, DueOf(steps[next]));
        ++next;
        return;
    }
    surroundings.command(PlugCommands(next, steps[next].time));
    present = false;
    while (next < steps.size() && steps[next].kind != RecordedKind::Plug) {
        ++next;
    }
}

std::optional<TimePoint> ReplayingMaster::NextDue() const {
    auto due = texts.NextDue();
    if (NextGoesByTime()) {
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
