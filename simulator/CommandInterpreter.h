#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/Cell.h"
#include "simulator/CommandWords.h"
#include "simulator/PtyPort.h"
#include "simulator/Testbed.h"

namespace simulator {

/// Carries out the commands that a user types or a script holds, each with a reply of one line.
/// One thread at a time.
class CommandInterpreter {
public:
    /// Takes a reply, without a line end.
    using Reply = std::function<void(const std::string& text)>;
    /// Interrupts COMMAND; false when it does not run.
    using Interrupt = std::function<bool()>;

    /// Cell and testbed outlive the interpreter.
    CommandInterpreter(Cell& ownCell, Testbed& ownTestbed, PtyPort::Start start,
                       Reply replyFunction, Interrupt interruptFunction);

    /// Executes one line; empty lines and those that begin with "#" do nothing.
    /// @return how long the reader is to pause before its next line.
    std::chrono::milliseconds Execute(const std::string& line);

    /// Makes the node of a master and sends "add".
    /// @throws std::runtime_error when it is plugged in.
    void Plug(std::size_t number);

private:
    using Handler = void (CommandInterpreter::*)(CommandWords& words);
    struct Entry {
        std::string_view name;
        std::string_view usage;
        Handler handler;
    };
    static std::span<const Entry> Table();

    void Help(CommandWords& words);
    void Plug(CommandWords& words);
    void Unplug(CommandWords& words);
    void HangUp(CommandWords& words);
    void Event(CommandWords& words);
    void Part(CommandWords& words);
    void Fault(CommandWords& words);
    void Mode(CommandWords& words);
    void Silent(CommandWords& words);
    void Mute(CommandWords& words);
    void Delay(CommandWords& words);
    void Error(CommandWords& words);
    void Send(CommandWords& words);
    void Stall(CommandWords& words);
    void SplitAnswers(CommandWords& words);
    void StreamRate(CommandWords& words);
    void QueryEndings(CommandWords& words);
    void ReportProcessOutput(CommandWords& words);
    void Parameter(CommandWords& words);
    void DeviceInfo(CommandWords& words);
    void Id(CommandWords& words);
    void Show(CommandWords& words);
    void Wait(CommandWords& words);
    void InterruptCommand(CommandWords& words);

    std::size_t TakeNumber(CommandWords& words) const;

    /// The rest of a command that hands one value to a master.
    template <typename Value>
    void Set(CommandWords& words, Value (*parse)(std::string_view),
             void (SimulatedMaster::*set)(Value));
    void HangUp(std::size_t number, bool reported);

    Cell& cell;
    Testbed& testbed;
    PtyPort::Start ttyStart;
    Reply reply;
    Interrupt interrupt;
    std::vector<bool> devicesPresent;  // by master: known to sysfs
    std::chrono::milliseconds pause{0};
    bool replied = false;  // by the handler itself
};

}  // namespace simulator
