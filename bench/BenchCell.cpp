// bench-cell: runs COMMAND with cheap simulated masters, which hardly disturb the measurement: one
// thread serves all of them, and each write carries as many lines as are due.

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "simulator/ChildProcess.h"
#include "simulator/FileDescriptor.h"
#include "simulator/LineProtocol.h"
#include "simulator/Pty.h"
#include "simulator/Testbed.h"

namespace bench {
namespace {

using std::chrono::nanoseconds;

constexpr std::string_view kStreamLine = "@PDIN=[9,c4,0,3]\n";  // position 25.0
constexpr std::size_t kLinesPerWrite = 240;                     // that fit into 4096 bytes
constexpr unsigned kHighestRate = 10000;

std::string RepeatedStreamLine() {
    std::string text;
    for (std::size_t line = 0; line < kLinesPerWrite; ++line) {
        text += kStreamLine;
    }
    return text;
}

const std::string kStreamText = RepeatedStreamLine();

/// Prints a line with one write, so that it is not mixed with the output of COMMAND.
void Print(const std::string& text) {
    const std::string line = "bench-cell: " + text + "\n";
    [[maybe_unused]] const auto written = write(STDERR_FILENO, line.data(), line.size());
}

/// A master in operate that answers at once. Its gripper is an HVA with the serial number "B07"
/// behind master 7. Assignments and calls are accepted and change nothing.
class FastMaster {
public:
    /// @param number 0 to 99
    explicit FastMaster(std::size_t number)
        : serial("[42,3" + std::to_string(number / 10) + ",3" + std::to_string(number % 10) + "]") {
        pty.SetRaw();
    }

    const std::string& NodePath() const { return pty.NodePath(); }
    int Descriptor() const { return pty.Descriptor(); }

    /// Whether text is waiting for which the tty had no room.
    bool WaitsForRoom() const { return !unsent.empty(); }

    /// Answers the requests that have come, all with one write.
    /// @param finFile gets the time just before the FIN of each PDOUT is written; -1 for none
    void Receive(int finFile) {
        std::array<char, 4096> buffer;
        const ssize_t count = read(pty.Descriptor(), buffer.data(), buffer.size());
        if (count <= 0) {
            return;
        }
        bool commanded = false;
        for (const std::string& line : requests.Add({buffer.data(), static_cast<size_t>(count)})) {
            if (const auto request = simulator::ParseRequest(line)) {
                Append(*request, unsent);
                commanded = commanded || line.starts_with("PDOUT=");
            }
        }
        if (commanded && finFile != -1) {
            const nanoseconds now = std::chrono::system_clock::now().time_since_epoch();
            [[maybe_unused]] const auto written = pwrite(finFile, &now, sizeof now, 0);
        }
        Flush();
    }

    /// Sends the waiting text and then lines of process data, with one write. Drops lines that do
    /// not fit into the tty, but never sends a part of one.
    /// @return the number of lines sent
    std::size_t Stream(std::size_t lines) {
        if (unsent.size() >= kStreamLine.size()) {
            Flush();
            return 0;
        }
        const std::size_t count = std::min(lines, kLinesPerWrite);
        unsent.append(kStreamText, 0, count * kStreamLine.size());
        Flush();
        const std::size_t lost = unsent.size() / kStreamLine.size();
        unsent.resize(unsent.size() % kStreamLine.size());
        return count - lost;
    }

    bool isWatchedForRoom = false;

private:
    void Flush() {
        const ssize_t count = write(pty.Descriptor(), unsent.data(), unsent.size());
        unsent.erase(0, count > 0 ? static_cast<std::size_t>(count) : 0);
    }

    void Append(const simulator::Request& request, std::string& answers) const {
        answers += "ACK " + request.key + "\n";
        const std::string value =
            request.form == simulator::RequestForm::Query ? ValueOf(request.key) : "";
        if (!value.empty()) {
            answers += request.key + "=" + value + "\n";
        }
        answers += "FIN " + request.key + "\n";
    }

    std::string ValueOf(const std::string& key) const {
        static const std::map<std::string, std::string> kValues{
            {"ID", "PELLIX"},
            {"MODE", "4"},
            {"DEVINFO", "[1,3,17,32,16,20,0,31249,20]"},
            {"PDOUT", "[0,0]"},
            {"PARAM[19][0]", "[48,56,41]"},  // "HVA"
        };
        if (key == "PARAM[21][0]") {
            return serial;
        }
        const auto place = kValues.find(key);
        if (place != kValues.end()) {
            return place->second;
        }
        return key.starts_with("PARAM[") ? "[1]" : "";
    }

    std::string serial;  // as a byte list
    simulator::Pty pty;
    simulator::FileDescriptor tty{pty.OpenTty()};  // kept open: it counts as hung up otherwise
    simulator::LineAssembler requests;
    std::string unsent;
};

/// All masters, and the commands that plug them and have them stream. Not thread-safe.
class FastCell {
public:
    /// @param finPath an existing file; empty for none
    FastCell(std::size_t count, const std::string& finPath)
        : finFile(finPath.empty() ? -1 : open(finPath.c_str(), O_WRONLY | O_CLOEXEC)),
          masters(count) {
        Watch(EPOLL_CTL_ADD, signals.Get(), EPOLLIN, kSignals);
        Watch(EPOLL_CTL_ADD, timer.Get(), EPOLLIN, kTimer);
        Watch(EPOLL_CTL_ADD, STDIN_FILENO, EPOLLIN, kInput);  // fails for a file
        for (std::size_t number = 0; number < count; ++number) {
            Plug(number);
        }
    }

    /// Serves the masters and the commands on standard input until COMMAND has ended.
    /// @return its exit status
    int Run(const std::vector<std::string>& command) {
        simulator::ChildProcess child;
        const pid_t pid = child.Start(
            command, {{"LD_PRELOAD", simulator::PreloadList(testbed.Folder(), PRELOAD_FOLDER)},
                      {"UMOCKDEV_DIR", testbed.Folder().string()}});
        Print("pid " + std::to_string(pid));
        while (true) {
            std::array<epoll_event, 64> ready{};
            const int count = epoll_wait(epoll.Get(), ready.data(), ready.size(), -1);
            for (int index = 0; index < count; ++index) {
                const epoll_event& event = ready[static_cast<std::size_t>(index)];
                if (event.data.u32 < masters.size()) {
                    Serve(event.data.u32, event.events);
                } else if (event.data.u32 == kTimer) {
                    Tick();
                } else if (event.data.u32 == kInput) {
                    ReadCommands();
                } else if (const auto status = HandleSignal(child)) {
                    return *status;
                }
            }
        }
    }

private:
    /// The sources of events besides the masters, which have their numbers.
    enum Source : std::uint32_t { kTimer = 1000, kInput, kSignals };

    void Watch(int operation, int descriptor, std::uint32_t events, std::uint32_t source) {
        epoll_event event{.events = events, .data = {.u32 = source}};
        epoll_ctl(epoll.Get(), operation, descriptor, &event);
    }

    void Serve(std::uint32_t number, std::uint32_t events) {
        std::optional<FastMaster>& master = masters[number];
        if (!master) {
            return;  // unplugged a moment ago
        }
        if ((events & EPOLLIN) != 0) {
            master->Receive(finFile.Get());
        }
        if ((events & EPOLLOUT) != 0) {
            linesSent += master->Stream(fullSpeed ? kLinesPerWrite : 0);
        }
        WatchForRoom(number);
    }

    /// Waiting for room that is not needed would wake this thread for each line that COMMAND reads.
    void WatchForRoom(std::size_t number) {
        FastMaster& master = *masters[number];
        const bool needsRoom = fullSpeed || master.WaitsForRoom();
        if (needsRoom != master.isWatchedForRoom) {
            master.isWatchedForRoom = needsRoom;
            Watch(EPOLL_CTL_MOD, master.Descriptor(), needsRoom ? EPOLLIN | EPOLLOUT : EPOLLIN,
                  static_cast<std::uint32_t>(number));
        }
    }

    /// Passes a signal on to COMMAND.
    /// @return COMMAND's exit status when it has ended
    std::optional<int> HandleSignal(simulator::ChildProcess& child) const {
        signalfd_siginfo signal{};
        if (read(signals.Get(), &signal, sizeof signal) == sizeof signal &&
            signal.ssi_signo != SIGCHLD) {
            child.Signal(static_cast<int>(signal.ssi_signo));
            return std::nullopt;
        }
        return child.Collect();
    }

    /// Makes up for missed ticks, to keep the rate.
    void Tick() {
        std::uint64_t ticks = 0;
        if (read(timer.Get(), &ticks, sizeof ticks) != sizeof ticks) {
            return;
        }
        for (std::size_t number = 0; number < masters.size(); ++number) {
            if (masters[number]) {
                linesSent += masters[number]->Stream(ticks);
                WatchForRoom(number);
            }
        }
    }

    /// Executes the commands of one read of standard input. Stops watching it at its end.
    void ReadCommands() {
        std::array<char, 4096> buffer;
        const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
        if (count <= 0) {
            Watch(EPOLL_CTL_DEL, STDIN_FILENO, 0, kInput);
            return;
        }
        for (const std::string& line : commands.Add({buffer.data(), static_cast<size_t>(count)})) {
            try {
                Print("ok" + Execute(line));
            } catch (const std::exception& failure) {
                Print("error: " + line + ": " + failure.what());
            }
        }
    }

    /// @return the text after "ok": empty, or a blank and a number
    std::string Execute(const std::string& line) {
        std::istringstream words(line);
        std::string name;
        std::string argument;
        words >> name >> argument;
        if (name == "rate") {
            SetRate(argument);
            return "";
        }
        if (name == "lines") {
            return " " + std::to_string(linesSent);
        }
        if (name == "plug") {
            return " " + std::to_string(Plug(std::stoul(argument)).count());
        }
        if (name == "unplug") {
            return " " + std::to_string(Unplug(std::stoul(argument)).count());
        }
        throw std::runtime_error("no such command");
    }

    /// @param text lines per second of each master, or "full" for as fast as the tty takes them
    void SetRate(const std::string& text) {
        fullSpeed = text == "full";
        const unsigned long rate = fullSpeed ? 0 : std::stoul(text);
        if (rate > kHighestRate) {
            throw std::runtime_error("too fast");
        }
        constexpr long kSecond = std::nano::den;
        const long period = rate == 0 ? 0 : kSecond / static_cast<long>(rate);
        itimerspec ticks{};
        ticks.it_interval = {.tv_sec = period / kSecond, .tv_nsec = period % kSecond};
        ticks.it_value = ticks.it_interval;
        timerfd_settime(timer.Get(), 0, &ticks, nullptr);
        for (std::size_t number = 0; number < masters.size(); ++number) {
            if (masters[number]) {
                WatchForRoom(number);
            }
        }
    }

    /// @return when the udev event was about to be sent
    nanoseconds Plug(std::size_t number) {
        if (masters.at(number)) {
            throw std::runtime_error("the master is plugged in already");
        }
        const FastMaster& master = masters[number].emplace(number);
        Watch(EPOLL_CTL_ADD, master.Descriptor(), EPOLLIN, static_cast<std::uint32_t>(number));
        WatchForRoom(number);
        testbed.Add(number, master.NodePath());
        return SendEvent(number, "add");
    }

    nanoseconds Unplug(std::size_t number) {
        if (!masters.at(number)) {
            throw std::runtime_error("the master is not plugged in");
        }
        testbed.RemoveNode(number);
        masters[number].reset();
        testbed.RemoveDevices(number);
        return SendEvent(number, "remove");
    }

    nanoseconds SendEvent(std::size_t number, const std::string& action) {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        testbed.SendEvent(number, action);
        return now;
    }

    sigset_t blocked = simulator::BlockSignals();  // so that no signal leaves the testbed behind
    simulator::FileDescriptor signals{signalfd(-1, &blocked, SFD_CLOEXEC | SFD_NONBLOCK)};
    simulator::Testbed testbed;
    simulator::FileDescriptor finFile;
    std::vector<std::optional<FastMaster>> masters;
    simulator::FileDescriptor epoll{epoll_create1(EPOLL_CLOEXEC)};
    simulator::FileDescriptor timer{timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)};
    simulator::LineAssembler commands;
    bool fullSpeed = false;
    std::uint64_t linesSent = 0;
};

constexpr const char* kDescription =
    R"(bench-cell [OPTIONS] -- COMMAND...
Runs COMMAND with simulated PELLIX masters that take hardly any processor time.
Master N, counted from 0, is /dev/ttyACM<N> with the gripper "HVA SN:B<NN>".
Exits with COMMAND's status.)";

constexpr const char* kCommands =
    R"(Commands on standard input, each answered by one line on standard error:
  rate HZ|full   process data lines per second of each master, at first 0;
                 full: as fast as its tty takes them
  plug N         answers with CLOCK_MONOTONIC in ns just before the udev event
  unplug N       hangs the tty up; answers as plug does
  lines          answers with the number of process data lines of all masters so far)";

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    try {
        unsigned masters = 1;
        std::string finFile;
        CLI::App app(bench::kDescription, "bench-cell");
        app.footer(bench::kCommands);
        app.add_option("--masters", masters, "how many, all plugged in")
            ->check(CLI::Range(0, 64))
            ->capture_default_str();
        app.add_option("--fin-file", finFile,
                       "gets CLOCK_REALTIME in ns, 8 bytes, just before the FIN of a PDOUT");
        // CLI11 must not see COMMAND: it splits words in brackets.
        char** const end = argv + argc;
        char** const dashes =
            std::find_if(argv, end, [](std::string_view word) { return word == "--"; });
        CLI11_PARSE(app, static_cast<int>(dashes - argv), argv);
        if (end - dashes < 2) {
            throw std::runtime_error("missing COMMAND; see bench-cell --help");
        }
        return bench::FastCell(masters, finFile).Run({dashes + 1, end});
    } catch (const std::exception& failure) {
        bench::Print("error: " + std::string(failure.what()));
        return 1;
    }
}
