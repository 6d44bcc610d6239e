#include "simulator/CommandInterpreter.h"

#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

#include "simulator/StateReport.h"
#include "simulator/TextTools.h"
#include "simulator/UsageError.h"

namespace simulator {

namespace {

constexpr unsigned kLargestNumber = 1000000000;
constexpr unsigned kLargestParameterIndex = 65535;

PtyPort& Port(Station& station) {
    if (!station.port) {
        throw std::runtime_error("the master is not plugged in");
    }
    return *station.port;
}

SimulatedMaster& Simulated(Station& station) {
    if (station.simulated == nullptr) {
        throw std::runtime_error("the master is a recording");
    }
    return *station.simulated;
}

SimulatedMaster& PluggedMaster(Station& station) {
    SimulatedMaster& master = Simulated(station);
    Port(station);
    return master;
}

std::chrono::milliseconds ParseMilliseconds(std::string_view text) {
    return std::chrono::milliseconds(ParseUnsigned(text, kLargestNumber));
}

std::size_t ParseLength(std::string_view text) {
    return ParseUnsigned(text, kLargestNumber);
}

Bytes ParseHexadecimalBytes(std::string_view text) {
    Bytes bytes;
    for (const std::string& part : Split(text, ',')) {
        bytes.push_back(ParseHexadecimalByte(part));
    }
    return bytes;
}

GripperFlag ParseFlag(const std::string& name) {
    const auto* const place = std::ranges::find(kGripperFlagNames, name);
    if (place == kGripperFlagNames.end()) {
        throw UsageError("no such flag");
    }
    return static_cast<GripperFlag>(place - kGripperFlagNames.begin());
}

}  // namespace

CommandInterpreter::CommandInterpreter(Cell& ownCell, Testbed& ownTestbed, PtyPort::Start start,
                                       Reply replyFunction, Interrupt interruptFunction)
    : cell(ownCell),
      testbed(ownTestbed),
      ttyStart(start),
      reply(std::move(replyFunction)),
      interrupt(std::move(interruptFunction)),
      devicesPresent(ownCell.Size()) {}

std::span<const CommandInterpreter::Entry> CommandInterpreter::Table() {
    using Self = CommandInterpreter;
    static constexpr std::array kTable{
        Entry{"plug", "plug N", &Self::Plug},
        Entry{"unplug", "unplug N", &Self::Unplug},
        Entry{"hangup", "hangup N", &Self::HangUp},
        Entry{"event", "event N ACTION", &Self::Event},
        Entry{"part", "part N WIDTH|none", &Self::Part},
        Entry{"fault", "fault N fault|temp-fault|temp-warn|maintenance on|off", &Self::Fault},
        Entry{"mode", "mode N CODE", &Self::Mode},
        Entry{"silent", "silent N on|off", &Self::Silent},
        Entry{"mute", "mute N on|off [KEY]", &Self::Mute},
        Entry{"delay", "delay N MS", &Self::Delay},
        Entry{"error", "error N CODE|off [KEY]", &Self::Error},
        Entry{"send", "send N TEXT", &Self::Send},
        Entry{"stall", "stall N on|off", &Self::Stall},
        Entry{"split", "split N BYTES", &Self::SplitAnswers},
        Entry{"pdin", "pdin N HZ", &Self::StreamRate},
        Entry{"query-end", "query-end N fin|data", &Self::QueryEndings},
        Entry{"report-pdout", "report-pdout N on|off", &Self::ReportProcessOutput},
        Entry{"param", "param N INDEX SUBINDEX [BYTE,BYTE...]", &Self::Parameter},
        Entry{"devinfo", "devinfo N NUMBER,NUMBER...", &Self::DeviceInfo},
        Entry{"id", "id N TEXT", &Self::Id},
        Entry{"show", "show N", &Self::Show},
        Entry{"wait", "wait MS", &Self::Wait},
        Entry{"int", "int", &Self::InterruptCommand},
        Entry{"help", "help", &Self::Help},
    };
    return kTable;
}

std::chrono::milliseconds CommandInterpreter::Execute(const std::string& line) {
    CommandWords words(line);
    const auto name = words.TakeIfAny();
    if (!name || name->starts_with('#')) {
        return {};
    }
    pause = {};
    replied = false;
    const auto entry = std::ranges::find(Table(), std::string_view(*name), &Entry::name);
    if (entry == Table().end()) {
        reply("usage: unknown command; help lists all of them");
        return {};
    }
    try {
        (this->*entry->handler)(words);
        if (!replied) {
            reply("ok " + line);
        }
    } catch (const UsageError&) {
        reply("usage: " + std::string(entry->usage));
    } catch (const std::exception& error) {
        reply("error: " + std::string(error.what()));
    }
    return pause;
}

/// Takes the number of a master off the front of `words`.
std::size_t CommandInterpreter::TakeNumber(CommandWords& words) const {
    const std::size_t number = ParseUnsigned(words.Take(), kLargestNumber);
    if (number >= cell.Size()) {
        throw std::runtime_error("there is no such master");
    }
    return number;
}

void CommandInterpreter::Help(CommandWords& words) {
    words.End();
    for (const Entry& entry : Table()) {
        reply("usage: " + std::string(entry.usage));
    }
    replied = true;
}

void CommandInterpreter::Plug(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    words.End();
    Plug(number);
}

void CommandInterpreter::Plug(std::size_t number) {
    std::string ttyPath;
    cell.Call(number, [this, &ttyPath](Station& station) {
        if (station.port) {
            throw std::runtime_error("the master is plugged in already");
        }
        station.port = std::make_unique<PtyPort>(ttyStart);
        station.master->PowerUp(Clock::now());
        if (ttyStart == PtyPort::Start::Cooked && station.simulated != nullptr) {
            station.simulated->FillBuffer(Clock::now());
        }
        ttyPath = station.port->NodePath();
    });
    testbed.Plug(number, ttyPath);
    devicesPresent[number] = true;
}

void CommandInterpreter::Unplug(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    words.End();
    if (!devicesPresent[number]) {
        throw std::runtime_error("the master is not plugged in");
    }
    HangUp(number, true);
    testbed.Unplug(number);
    devicesPresent[number] = false;
}

void CommandInterpreter::HangUp(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    words.End();
    HangUp(number, false);
}

void CommandInterpreter::HangUp(std::size_t number, bool reported) {
    testbed.RemoveNode(number);
    cell.Call(number, [reported](Station& station) {
        if (station.port || reported) {
            station.master->HangUp(reported, Clock::now());
        }
        station.port.reset();
    });
}

void CommandInterpreter::Event(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    const std::string action = words.Take();
    words.End();
    testbed.SendEvent(number, action);
}

void CommandInterpreter::Part(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    const std::string width = words.Take();
    words.End();
    const auto part = width == "none" ? std::nullopt : std::optional(ParseDecimal(width));
    cell.Call(number,
              [part](Station& station) { Simulated(station).Gripper(Clock::now()).SetPart(part); });
}

void CommandInterpreter::Fault(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    const GripperFlag flag = ParseFlag(words.Take());
    const bool on = ParseOnOff(words.Take());
    words.End();
    cell.Call(number, [flag, on](Station& station) {
        Simulated(station).Gripper(Clock::now()).SetFlag(flag, on);
    });
}

void CommandInterpreter::Mode(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    const unsigned code = ParseUnsigned(words.Take(), mode::kLargest);
    words.End();
    cell.Call(number,
              [code](Station& station) { PluggedMaster(station).SetMode(code, Clock::now()); });
}

template <typename Value>
void CommandInterpreter::Set(CommandWords& words, Value (*parse)(std::string_view),
                             void (SimulatedMaster::*set)(Value)) {
    const std::size_t number = TakeNumber(words);
    const Value value = parse(words.Take());
    words.End();
    cell.Call(number, [value, set](Station& station) { (Simulated(station).*set)(value); });
}

void CommandInterpreter::Silent(CommandWords& words) {
    Set(words, ParseOnOff, &SimulatedMaster::SetSilent);
}

void CommandInterpreter::Mute(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    const bool on = ParseOnOff(words.Take());
    const auto key = words.TakeIfAny();
    words.End();
    cell.Call(number, [on, &key](Station& station) {
        if (key) {
            Simulated(station).SetMuteFor(*key, on);
        } else {
            Simulated(station).SetMute(on);
        }
    });
}

void CommandInterpreter::Delay(CommandWords& words) {
    Set(words, ParseMilliseconds, &SimulatedMaster::SetAnswerDelay);
}

void CommandInterpreter::Error(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    const std::string code = words.Take();
    const auto key = words.TakeIfAny();
    words.End();
    cell.Call(number, [&code, &key](Station& station) {
        if (code == "off") {
            Simulated(station).ClearError(key);
        } else {
            Simulated(station).SetError(code, key);
        }
    });
}

void CommandInterpreter::Send(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    const std::string text = Unescape(words.TakeRest());
    cell.Call(number,
              [&text](Station& station) { PluggedMaster(station).SendRaw(text, Clock::now()); });
}

void CommandInterpreter::Stall(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    const bool on = ParseOnOff(words.Take());
    words.End();
    cell.Call(number, [on](Station& station) { Port(station).SetStalled(on); });
}

void CommandInterpreter::SplitAnswers(CommandWords& words) {
    Set(words, ParseLength, &SimulatedMaster::SetPieceLength);
}

void CommandInterpreter::StreamRate(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    const unsigned rate = ParseUnsigned(words.Take(), kLargestStreamRate);
    words.End();
    cell.Call(number,
              [rate](Station& station) { Simulated(station).SetStreamRate(rate, Clock::now()); });
}

void CommandInterpreter::QueryEndings(CommandWords& words) {
    Set(words, ParseQueryEnd, &SimulatedMaster::SetQueryEnd);
}

void CommandInterpreter::ReportProcessOutput(CommandWords& words) {
    Set(words, ParseOnOff, &SimulatedMaster::SetReportProcessOutput);
}

void CommandInterpreter::Parameter(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    const unsigned index = ParseUnsigned(words.Take(), kLargestParameterIndex);
    const unsigned subindex = ParseUnsigned(words.Take(), kLargestParameterIndex);
    const Bytes bytes = ParseHexadecimalBytes(words.TakeIfAny().value_or(""));
    words.End();
    cell.Call(number, [index, subindex, &bytes](Station& station) {
        Simulated(station).Gripper(Clock::now()).DefineParameter({index, subindex}, bytes);
    });
}

void CommandInterpreter::DeviceInfo(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    const std::string numbers = words.TakeIfAny().value_or("");
    words.End();
    if (numbers.find_first_not_of("0123456789,") != std::string::npos) {
        throw UsageError("not decimal numbers");
    }
    cell.Call(number, [&numbers](Station& station) { Simulated(station).SetDeviceInfo(numbers); });
}

void CommandInterpreter::Id(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    const std::string id = Unescape(words.TakeRest());
    cell.Call(number, [&id](Station& station) { Simulated(station).SetId(id); });
}

void CommandInterpreter::Show(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    words.End();
    std::string report;
    cell.Call(number, [number, &report](Station& station) {
        Simulated(station).Gripper(Clock::now());
        report = StateReport(number, Simulated(station), station.port.get());
    });
    reply("state " + report);
    replied = true;
}

void CommandInterpreter::Wait(CommandWords& words) {
    const auto time = ParseMilliseconds(words.Take());
    words.End();
    pause = time;
}

void CommandInterpreter::InterruptCommand(CommandWords& words) {
    words.End();
    if (!interrupt()) {
        throw std::runtime_error("COMMAND does not run");
    }
}

}  // namespace simulator
