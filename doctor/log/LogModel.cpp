#include "doctor/log/LogModel.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace tavrik {

namespace {

using std::chrono::microseconds;

constexpr std::size_t kMostHeld = 2000;
constexpr std::string_view kActive = "Active command ";
constexpr std::string_view kTimedOut = "timed out after ";

/// Whether `message` is about a gripper, though its thread serves all.
bool IsAboutGripper(std::string_view message) {
    return message.starts_with("PDIN length mismatch: ") ||
           message.starts_with("Device string is empty ") || message.starts_with("Pellix not ") ||
           message.starts_with("Parameter ") || message == "Invalid device ID";
}

/// The tty that a line about a master names at its end.
std::string_view NodeIn(std::string_view message) {
    constexpr std::array<std::string_view, 5> kBeginnings{
        "PELLIX removed: ", "Removing ",
        "PELLIX has a link already: ", "Failed to open serial connection on ",
        "Failed to remove PELLIX from list: "};
    for (const std::string_view beginning : kBeginnings) {
        if (const auto node = After(beginning, message)) {
            return *node;
        }
    }
    return {};
}

LogOwner OwnerAt(const LinkPointer& link) {
    return link ? LogOwner{link->node, link->Gripper()} : LogOwner{};
}

bool HasFailed(std::string_view message) {
    return message.starts_with("Pending command ") && !message.ends_with(" (Status: 0).");
}

}  // namespace

LogModel::LogModel(Sink sink, bool withRoutine, Filter isWanted)
    : sink(std::move(sink)),
      withRoutine(withRoutine),
      isWanted(std::move(isWanted)),
      calls(links,
            {[this](std::uint64_t thread, const LogOwner& owner) { SetOwner(thread, owner); },
             [this](LogRow row) { ended.push_back(std::move(row)); }}),
      repeats("lines", [this](const LogRow& row) { this->sink(row); }),
      absences("refused readings", [this](const LogRow& row) { this->sink(row); }) {}

void LogModel::Take(std::string_view line) {
    if (std::exchange(hasLearned, isLearning) && !isLearning) {
        calls.End();  // what has ended before the part of interest does not belong to it
        ended.clear();
    }
    const LogEntry entry = ParseLogEntry(line);
    ++now.line;
    summary.lines += isLearning ? 0U : 1U;
    const bool continues = !entry.thread && timedOut;
    const std::string_view rest =
        entry.message.substr(std::min(entry.message.find_first_not_of(' '), entry.message.size()));
    if (continues && rest.starts_with(kTimedOut)) {
        TakeTimeout(rest.substr(kTimedOut.size()));
        return;
    }
    if (auto alone = std::exchange(timedOut, std::nullopt)) {
        Add(std::move(*alone));
    }
    if (!entry.clock.empty()) {
        Advance(entry);
    }
    entry.thread ? TakeDaemonLine(entry) : TakeOtherLine(entry);
    AddEnded();
}

void LogModel::Learn(std::string_view line) {
    isLearning = true;
    Take(line);
    isLearning = false;
}

void LogModel::Idle(microseconds time) {
    now.time += time;
    calls.Expire(now);
    now.time -= time;
    EmitAll();
}

void LogModel::End() {
    if (auto alone = std::exchange(timedOut, std::nullopt)) {
        Add(std::move(*alone));
    }
    calls.End();
    EmitAll();
}

std::vector<std::string> LogModel::PresentNames() const {
    std::vector<std::string> names;
    for (const LinkPointer& link : links.All()) {
        names.push_back(link->node);
        names.push_back(link->Gripper());
    }
    return names;
}

/// A log without dates goes back at midnight, and by less if the clock was set.
void LogModel::Advance(const LogEntry& entry) {
    constexpr std::chrono::hours kDay(24);
    microseconds time = entry.SinceStart();
    if (entry.date.empty()) {
        const auto days = std::chrono::floor<std::chrono::days>(now.time);
        time += days;
        time += time + kDay / 2 < now.time ? kDay : std::chrono::hours(0);
    }
    const bool isNextSecond = time / std::chrono::seconds(1) != now.time / std::chrono::seconds(1);
    now.time = time;
    now.isExact = entry.IsPrecise();
    now.stamp.date = entry.date;
    now.stamp.clock = entry.clock;
    now.stamp.zone = entry.zone;
    if (isNextSecond) {
        constexpr std::chrono::seconds kQuiet(2);
        calls.Expire(now);
        repeats.Flush(now.time, kQuiet);
        absences.Flush(now.time, kQuiet);
    }
}

void LogModel::TakeDaemonLine(const LogEntry& entry) {
    const std::uint64_t thread = *entry.thread;
    const std::string_view message = entry.message;
    LogRow row{now.stamp, KindOf(message), OwnerOf(thread, message), thread};
    if (const auto request = After(kActive, message);
        request && !request->ends_with(" could not be found")) {
        row.text = message;
        timedOutRequest = *request;
        timedOut = std::move(row);
        return;
    }
    if (message.starts_with("Starting TavrikDaemon")) {
        calls.End();  // another process: its threads may have the same numbers
    }
    links.Take(now.line, thread, message);
    bool isFolded = false;
    bool isAwaiting = false;
    if (links.IsLinkThread(thread) && links.LinkOf(thread)) {
        row.owner = row.owner.IsKnown() ? row.owner : OwnerOf(thread, message);
        row.kind = HasFailed(message) ? LogKind::Problem : row.kind;
    } else {
        isFolded = calls.Take(now, thread, message);
        isAwaiting = (isFolded && calls.IsAwaited(thread)) || links.IsLinkUnknown(thread);
        if (const LogOwner& owner = calls.LastOwner(thread);
            isFolded || message.starts_with("Parameter ")) {
            row.owner = owner;
        }
    }
    if (isFolded) {
        row.kind = LogKind::Routine;
    }
    if (row.kind != LogKind::Routine || (withRoutine && !isLearning)) {
        row.text = message;
        row.isOfDaemon = IsOfDaemon(message);
        row.owner = row.isOfDaemon ? LogOwner() : row.owner;
        Add(std::move(row), isAwaiting);
    }
}

void LogModel::TakeOtherLine(const LogEntry& entry) {
    const bool isDaemon = entry.process.empty() || entry.process.starts_with("TavrikDaemon[") ||
                          entry.process.starts_with("pellix-sim[");
    const LogKind kind = isDaemon ? KindOf(entry.message) : LogKind::Other;
    if (entry.message.find_first_not_of(" \r") == std::string_view::npos) {
        return;
    }
    LogRow row{entry.clock.empty() ? LogStamp() : now.stamp, kind};
    row.isOfDaemon = isDaemon && IsOfDaemon(entry.message);
    row.text = (isDaemon ? "" : std::string(entry.process) + ": ") + std::string(entry.message);
    Add(std::move(row));
}

/// @param rest "1005 ms."
void LogModel::TakeTimeout(std::string_view rest) {
    LogRow row = std::move(*timedOut);
    timedOut.reset();
    std::int64_t age = 0;
    std::from_chars(rest.data(), rest.data() + rest.size(), age);
    links.TakeTimeout(now.line, *row.thread, timedOutRequest, std::chrono::milliseconds(age));
    row.owner = OwnerAt(links.LinkOf(*row.thread));
    row.text += " " + std::string(kTimedOut) + std::string(rest);
    if (withRoutine && !isLearning) {
        Add(std::move(row));
    }
}

/// Sets the owner of the lines of `thread` that are held back.
void LogModel::SetOwner(std::uint64_t thread, const LogOwner& owner) {
    for (Held& each : held) {
        if (each.isAwaiting && each.row.thread == thread) {
            each.row.owner = owner;
            each.isAwaiting = false;
        }
    }
}

void LogModel::Add(LogRow row, bool isAwaiting) {
    if (isLearning) {
        return;
    }
    held.push_back({std::move(row), now.time, isAwaiting});
    Emit(kMostHeld);
}

/// Shows the rows up to the first whose owner is awaited.
void LogModel::Emit(std::size_t mostHeld) {
    while (!held.empty() && (!held.front().isAwaiting || held.size() > mostHeld)) {
        Show(held.front());
        held.pop_front();
    }
}

void LogModel::Show(const Held& row) {
    if (!isWanted(row.row)) {
        return;
    }
    summary.Add(row.row);
    const bool mayRepeat =
        row.row.kind == LogKind::Problem || row.row.text == "SerialConnection: Reopening";
    if (withRoutine) {
        sink(row.row);
    } else if (row.row.call && row.row.call->isAbsent) {
        absences.Take(row.row, row.time);
    } else if (mayRepeat) {
        repeats.Take(row.row, row.time);
    } else {
        absences.Flush(row.row);
        sink(row.row);
    }
}

void LogModel::AddEnded() {
    for (LogRow& call : std::exchange(ended, {})) {
        Add(std::move(call));
    }
}

void LogModel::EmitAll() {
    AddEnded();
    Emit(0);
    repeats.Flush();
    absences.Flush();
}

LogOwner LogModel::OwnerOf(std::uint64_t thread, std::string_view message) const {
    LinkPointer link = links.LinkOf(thread);
    if (const std::string_view node = NodeIn(message); !link && !node.empty()) {
        link = links.FindByNode(node);
    }
    if (!link && IsAboutGripper(message)) {
        link = links.OnlyLink();
    }
    return OwnerAt(link);
}

}  // namespace tavrik
