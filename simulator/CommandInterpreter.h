#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "simulator/Bus.h"
#include "simulator/Cell.h"
#include "simulator/TextTools.h"

namespace simulator {

/// Executes the commands of users, scripts and replays. Each has a reply of one line.
/// Not thread-safe.
class CommandInterpreter {
public:
    /// Sends SIGINT to COMMAND; false if it is not running.
    using Interrupt = std::function<bool()>;

    /// Cell and bus outlive the interpreter.
    /// @param reply takes a reply without its line feed
    CommandInterpreter(Cell& cell, Bus& bus, Printer reply, Interrupt interrupt);

    /// Executes a line; ignores empty lines and lines that start with "#".
    /// @return the pause before the next line of the same source
    std::chrono::milliseconds Execute(const std::string& line);

    /// Plugs a master in; udev reports "add".
    /// @throws std::runtime_error if it is already plugged in.
    void Plug(std::size_t number);

private:
    std::size_t TakeNumber(CommandWords& words) const;
    std::size_t TakeLastNumber(CommandWords& words) const;
    void HangUp(std::size_t number, bool reported);

    void HandleHelp(CommandWords& words);
    void HandlePlug(CommandWords& words);
    void HandleUnplug(CommandWords& words);
    void HandleHangUp(CommandWords& words);
    void HandleEvent(CommandWords& words);
    void HandleUsbReset(CommandWords& words);
    void HandleShow(CommandWords& words);
    void HandleWait(CommandWords& words);
    void HandleInterrupt(CommandWords& words);

    struct Command;
    static const std::vector<Command>& Commands();
    static const Command* Find(const std::string& name);

    Cell& cell;
    Bus& bus;
    Printer reply;
    Interrupt interrupt;
    std::vector<bool> devicesPresent;  // by master: plugged in for udev
    std::chrono::milliseconds pause{0};
    bool replied = false;  // by the handler
};

}  // namespace simulator
