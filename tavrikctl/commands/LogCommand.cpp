#include <sys/stat.h>

#include <deque>
#include <nlohmann/json.hpp>
#include <optional>
#include <stop_token>

#include "client/Printable.h"
#include "doctor/log/LogFilter.h"
#include "doctor/log/LogModel.h"
#include "doctor/log/LogRow.h"
#include "doctor/log/LogSource.h"
#include "doctor/log/LogStart.h"
#include "tavrikctl/Interruption.h"
#include "tavrikctl/LogView.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

namespace {

constexpr std::chrono::milliseconds kReadPatience(200);

/// Prints the daemon's log for a person.
class LogCommand : public Command {
public:
    explicit LogCommand(CLI::App& program)
        : Command(program, "log", "Show the log of TavrikDaemon by gripper and call") {
        app.add_option("GRIPPER", gripper, "device string, or a part of it, or a tty")
            ->check(CheckNotEmpty)
            ->option_text(" ");
        AddFile("FILE", file, "file, or - for standard input (default: journal)")
            ->check([this](const std::string& text) { return CheckNoName(text); });
        app.add_flag("-f,--follow", isFollowed,
                     "wait for more until Ctrl-C; journal: from 10 min ago");
        app.add_option("--since", since, "14:00, '2026-11-22 14:00', or how long ago: 10min, 2h")
            ->check(CheckNotEmpty)
            ->option_text("TIME");
        app.add_flag("-v,--verbose", isVerbose, "show every line");
        app.add_flag("--json", json, "print one JSON object per line");
    }

    ExitStatus Run(Daemon& /*daemon*/, Printer& printer) override;

private:
    std::string CheckNoName(const std::string& text) const;
    void SortArguments();
    std::unique_ptr<LogSource> Open(LogModel& model);
    std::uint64_t LinesBefore() const;
    void Read(LogSource& source, LogModel& model, Printer& printer, const std::stop_token& stop);
    void WarnIfUnknown(const LogModel& model);
    std::string UnknownText() const;
    void Take(LogModel& model, std::string_view line);
    void Show(const LogRow& row, Printer& printer);
    void ShowLast(Printer& printer);
    void Print(const LogRow& row, Printer& printer);
    void PrintSummary(const LogSummary& summary, Printer& printer) const;

    std::string gripper;
    std::string file;  // empty for the journal
    std::string since;
    bool isFollowed = false;
    bool isVerbose = false;
    bool isWarned = false;

    std::optional<LogStart> begin;  // until it is reached
    std::uint64_t linesBefore = 0;  // in a file
    bool isCatchingUp = false;      // with what was logged before, of which only the end is shown
    std::deque<LogRow> last;
    std::optional<LogView> view;
    std::optional<LogFilter> filter;
};

bool IsFile(const std::string& text) {
    struct stat status = {};
    return text == "-" || text.find('/') != std::string::npos || stat(text.c_str(), &status) == 0;
}

/// If the second word is not a file, it probably belongs to a name that was not quoted.
std::string LogCommand::CheckNoName(const std::string& text) const {
    return IsFile(text) ? ""
                        : "'" + text + "' does not exist; quote a name that contains blanks: " +
                              ShellWord(gripper + " " + text);
}

/// A single word is a file if there is such a file.
void LogCommand::SortArguments() {
    if (file.empty() && IsFile(gripper)) {
        std::swap(file, gripper);
    }
}

ExitStatus LogCommand::Run(Daemon& /*daemon*/, Printer& printer) {
    SortArguments();
    if (!since.empty()) {
        begin.emplace(since);
    }
    isCatchingUp = isFollowed && since.empty() && file != "-";
    view.emplace(TerminalColumns());
    filter.emplace(gripper);
    LogModel model([&](const LogRow& row) { Show(row, printer); }, isVerbose,
                   [this](const LogRow& row) { return filter->Wants(row); });
    const auto source = Open(model);
    bool isTerminated = false;
    {
        const Interruption interruption;  // after journalctl was started, which it would not end
        Read(*source, model, printer, interruption.Token());
        isTerminated = interruption.IsTermination();
    }
    model.End();
    ShowLast(printer);
    if (file.empty() && model.Summary().lines == 0) {
        throw Failure(ExitStatus::Failed,
                      (gripper.empty() ? "" : "file '" + gripper + "' does not exist, and ") +
                          "the journal has no lines of TavrikDaemon: run this as root, or name its "
                          "log file: tavrikctl log FILE");
    }
    if (!filter->IsFound(model.PresentNames())) {
        throw Failure(ExitStatus::NoGripper, UnknownText());
    }
    PrintSummary(model.Summary(), printer);
    return isTerminated ? ExitStatus::Interrupted : ExitStatus::Done;
}

std::unique_ptr<LogSource> LogCommand::Open(LogModel& model) {
    if (!file.empty()) {
        auto source = OpenLogFile(file, isFollowed);
        struct stat status = {};
        if (begin && stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
            linesBefore = LinesBefore();
            begin.reset();
        }
        return source;
    }
    constexpr std::chrono::minutes kRecent(10);
    if (!begin && !isFollowed) {
        return OpenJournal({"--boot"});
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto start =
        begin ? begin->Time() : std::chrono::duration_cast<std::chrono::seconds>(now - kRecent);
    begin.reset();
    for (const std::string& line : ReadJournalBefore(start)) {
        model.Learn(line);
    }
    return isFollowed ? FollowJournal(start)
                      : OpenJournal({"--since=@" + std::to_string(start.count())});
}

/// The number of lines before the last place where the time is that of --since.
std::uint64_t LogCommand::LinesBefore() const {
    LogStart search = *begin;
    const auto source = OpenLogFile(file, false);
    std::uint64_t count = 0;
    std::optional<std::uint64_t> found;
    std::string_view line;
    while (source->Next(line, kReadPatience) == LogSource::Result::Line) {
        if (search.StartsAt(ParseLogEntry(line))) {
            found = count;
        }
        ++count;
    }
    return found.value_or(count);
}

/// Ctrl-C ends the reading, and the summary follows.
void LogCommand::Read(LogSource& source, LogModel& model, Printer& printer,
                      const std::stop_token& stop) {
    using Clock = std::chrono::steady_clock;
    auto lastLine = Clock::now();
    std::string_view line;
    while (!stop.stop_requested()) {
        switch (source.Next(line, kReadPatience)) {
            case LogSource::Result::Line:
                lastLine = Clock::now();
                Take(model, line);
                break;
            case LogSource::Result::Idle:
                model.Idle(
                    std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - lastLine));
                ShowLast(printer);
                WarnIfUnknown(model);
                break;
            case LogSource::Result::End:
                return;
        }
    }
}

/// Otherwise a user who follows the log waits in vain after mistyping a name.
void LogCommand::WarnIfUnknown(const LogModel& model) {
    if (!isWarned && isFollowed && !filter->IsFound(model.PresentNames())) {
        Warn(UnknownText() + " so far");
    }
    isWarned = true;
}

/// A single word may have been meant as a file.
std::string LogCommand::UnknownText() const {
    return file.empty() ? "'" + gripper + "' is neither a file nor a gripper in the journal"
                        : "no gripper in the log matches '" + gripper + "'";
}

void LogCommand::Take(LogModel& model, std::string_view line) {
    if (begin && begin->StartsAt(ParseLogEntry(line))) {
        begin.reset();
    }
    if (begin || linesBefore > 0) {
        linesBefore -= linesBefore > 0 ? 1 : 0;
        model.Learn(line);
    } else {
        model.Take(line);
    }
}

void LogCommand::Show(const LogRow& row, Printer& printer) {
    if (!isCatchingUp) {
        Print(row, printer);
        return;
    }
    constexpr std::size_t kLast = 10;
    last.push_back(row);
    if (last.size() > kLast) {
        last.pop_front();
    }
}

/// Shows the last rows that were logged before the start.
void LogCommand::ShowLast(Printer& printer) {
    for (const LogRow& row : std::exchange(last, {})) {
        Print(row, printer);
    }
    isCatchingUp = false;
}

void LogCommand::Print(const LogRow& row, Printer& printer) {
    using Handler = nlohmann::ordered_json::error_handler_t;
    if (json) {
        printer.Line(JsonOf(row).dump(-1, ' ', true, Handler::replace));
        return;
    }
    for (const std::string& line : view->Lines(row)) {
        printer.Line(StyledText{line, IsAlarming(row)});
    }
}

void LogCommand::PrintSummary(const LogSummary& summary, Printer& printer) const {
    using Handler = nlohmann::ordered_json::error_handler_t;
    if (json) {
        printer.Line(JsonOf(summary).dump(-1, ' ', true, Handler::replace));
        return;
    }
    printer.Line(std::string());
    for (const std::string& line : view->Lines(summary)) {
        printer.Line(line);
    }
}

}  // namespace

std::unique_ptr<Command> MakeLogCommand(CLI::App& program) {
    return std::make_unique<LogCommand>(program);
}

}  // namespace tavrik
