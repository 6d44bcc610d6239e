#include "simulator/CommandInterpreter.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <variant>

#include "simulator/StateReport.h"

namespace simulator {

namespace {

constexpr const char* kJsonOption = "--json";
constexpr unsigned kLargestNumber = 1000000000;
constexpr unsigned kLargestParameterIndex = 65535;

/// What a command does with its master, on the cell's thread.
using Work = std::function<void(Station&)>;

Port& PluggedPort(Station& station) {
    if (!station.port) {
        throw std::runtime_error("the master is not plugged in");
    }
    return *station.port;
}

SimulatedMaster& Simulated(Station& station) {
    if (station.simulated == nullptr) {
        throw std::runtime_error("the master replays a recording and has no gripper");
    }
    return *station.simulated;
}

SimulatedGripper& Gripper(Station& station) {
    return Simulated(station).Gripper(Clock::now());
}

SimulatedMaster& PluggedMaster(Station& station) {
    SimulatedMaster& master = Simulated(station);
    PluggedPort(station);
    return master;
}

UsbFaults& Usb(const Station& station) {
    if (!station.usb) {
        throw std::runtime_error("the master is not on USB: start pellix-sim with --usb");
    }
    return *station.usb;
}

unsigned ParseCount(std::string_view text) {
    return ParseUnsigned(text, kLargestNumber);
}

std::chrono::milliseconds ParseMilliseconds(std::string_view text) {
    return std::chrono::milliseconds(ParseCount(text));
}

/// Passes one value to the master.
template <auto Parse, auto Set>
Work Pass(CommandWords& words) {
    const auto value = Parse(words.Take());
    return [value](Station& station) { (Simulated(station).*Set)(value); };
}

Work Part(CommandWords& words) {
    const std::string width = words.Take();
    const auto part = width == "none" ? std::nullopt : std::optional(ParseDecimal(width));
    if (part && *part < 0) {
        throw UsageError("invalid width '" + width + "': must not be negative");
    }
    return [part](Station& station) { Gripper(station).SetPart(part); };
}

Work Fault(CommandWords& words) {
    const std::string name = words.Take();
    const auto* const place = std::ranges::find(kGripperFlagNames, name);
    if (place == kGripperFlagNames.end()) {
        throw UsageError("unknown flag '" + name + "'");
    }
    const auto flag = static_cast<GripperFlag>(place - kGripperFlagNames.begin());
    const bool on = ParseOnOff(words.Take());
    return [flag, on](Station& station) { Gripper(station).SetFlag(flag, on); };
}

Work Mode(CommandWords& words) {
    const unsigned code = ParseUnsigned(words.Take(), mode::kLargest);
    return [code](Station& station) { PluggedMaster(station).SetMode(code, Clock::now()); };
}

Work Mute(CommandWords& words) {
    const bool on = ParseOnOff(words.Take());
    const auto key = words.TakeIfAny();
    return [on, key](Station& station) { Simulated(station).SetMute(on, key); };
}

Work Error(CommandWords& words) {
    const std::string code = words.Take();
    const auto key = words.TakeIfAny();
    return [code, key](Station& station) {
        if (code == "off") {
            Simulated(station).ClearError(key);
        } else {
            Simulated(station).SetError(code, key);
        }
    };
}

Work Send(CommandWords& words) {
    const std::string text = Unescape(words.TakeRest());
    return [text](Station& station) { PluggedMaster(station).SendRaw(text, Clock::now()); };
}

Work Stall(CommandWords& words) {
    const bool on = ParseOnOff(words.Take());
    return [on](Station& station) { PluggedPort(station).SetStalled(on); };
}

Work StreamRate(CommandWords& words) {
    const unsigned rate = ParseUnsigned(words.Take(), kLargestStreamRate);
    return [rate](Station& station) { Simulated(station).SetStreamRate(rate, Clock::now()); };
}

Work Parameter(CommandWords& words) {
    const unsigned index = ParseUnsigned(words.Take(), kLargestParameterIndex);
    const unsigned subindex = ParseUnsigned(words.Take(), kLargestParameterIndex);
    Bytes bytes;
    for (const std::string& part : Split(words.TakeIfAny().value_or(""), ',')) {
        bytes.push_back(ParseHexadecimalByte(part));
    }
    return [index, subindex, bytes](Station& station) {
        Gripper(station).DefineParameter({index, subindex}, bytes);
    };
}

Work DeviceInfo(CommandWords& words) {
    const std::string numbers = words.TakeIfAny().value_or("");
    if (numbers.find_first_not_of("0123456789,") != std::string::npos) {
        throw UsageError("invalid numbers '" + numbers + "'");
    }
    return [numbers](Station& station) { Simulated(station).SetDeviceInfo(numbers); };
}

std::string UnknownText(const std::string& name) {
    return "unknown command '" + name + "'; \"help\" lists all commands";
}

Work Id(CommandWords& words) {
    const std::string id = Unescape(words.TakeRest());
    return [id](Station& station) { Simulated(station).SetId(id); };
}

/// Stores one value in the faults of USB.
template <auto Parse, auto Field>
Work SetUsb(CommandWords& words) {
    const auto value = Parse(words.Take());
    return [value](const Station& station) { Usb(station).*Field = value; };
}

Work UsbControl(CommandWords& words) {
    using Kind = UsbFaults::Control;
    const std::string word = words.Take();
    const Kind kind = word == "refuse"   ? Kind::Refuse
                      : word == "ignore" ? Kind::Ignore
                                         : Kind::Answer;
    const auto delay =
        kind == Kind::Answer ? ParseMilliseconds(word) : std::chrono::milliseconds::zero();
    return [kind, delay](const Station& station) {
        Usb(station).control = kind;
        Usb(station).controlDelay = delay;
    };
}

Work UsbHalt(CommandWords& words) {
    const bool toHost = ParseChoice(words.Take(), "in", "out");
    return [toHost](const Station& station) {
        (toHost ? Usb(station).haltedIn : Usb(station).haltedOut) = true;
    };
}

Work UsbText(CommandWords& words) {
    const std::string name = words.Take();
    std::optional<std::string> UsbTexts::*text = &UsbTexts::serial;
    if (name == "manufacturer") {
        text = &UsbTexts::manufacturer;
    } else if (name == "product") {
        text = &UsbTexts::product;
    } else if (name != "serial") {
        throw UsageError("unknown text '" + name + "'");
    }
    const std::string value = Unescape(words.TakeRest());
    return [text, value](const Station& station) {
        Usb(station).texts.*text = value.empty() ? std::nullopt : std::optional(value);
    };
}

std::optional<std::size_t> ParseLength(std::string_view text) {
    return text == "all" ? std::nullopt : std::optional<std::size_t>(ParseCount(text));
}

Work UsbMove(CommandWords& /*words*/) {
    return [](const Station& station) { Usb(station).otherPort = true; };
}

}  // namespace

struct CommandInterpreter::Command {
    std::string_view usage;    ///< begins with the name
    std::string_view purpose;  ///< up to 40 characters
    /// A handler, or a parser of the words after the master's number.
    std::variant<void (CommandInterpreter::*)(CommandWords&), Work (*)(CommandWords&)> handler;

    std::string_view Name() const { return usage.substr(0, usage.find(' ')); }
};

const std::vector<CommandInterpreter::Command>& CommandInterpreter::Commands() {
    using Self = CommandInterpreter;
    static const std::vector<Command> kCommands{
        {"plug N", "plug master N in", &Self::HandlePlug},
        {"unplug N", "unplug it", &Self::HandleUnplug},
        {"hangup N", "end its tty without a udev event", &Self::HandleHangUp},
        {"event N ACTION", "report a udev event, change nothing", &Self::HandleEvent},
        {"part N WIDTH|none", "put a part of WIDTH mm in, or take it out", Part},
        {"fault N fault|temp-fault|temp-warn|maintenance on|off",
         "set or clear a flag of its gripper", Fault},
        {"mode N CODE", "change its data-link mode", Mode},
        {"silent N on|off", "send and execute nothing",
         Pass<ParseOnOff, &SimulatedMaster::SetSilent>},
        {"mute N on|off [KEY]", "ignore requests, or those with KEY", Mute},
        {"delay N MS", "answer MS milliseconds later",
         Pass<ParseMilliseconds, &SimulatedMaster::SetAnswerDelay>},
        {"error N CODE|off [KEY]", "refuse requests, or those with KEY", Error},
        {"send N TEXT", "send TEXT; escapes as \\n, \\x41", Send},
        {"stall N on|off", "take no more bytes, so that writes block", Stall},
        {"split N BYTES", "send answers in pieces of BYTES",
         Pass<ParseCount, &SimulatedMaster::SetPieceLength>},
        {"pdin N HZ", "send process data HZ times a second", StreamRate},
        {"query-end N fin|data", "end answers to queries with FIN, or not",
         Pass<ParseQueryEnd, &SimulatedMaster::SetQueryEnd>},
        {"report-pdout N on|off", "answer a PDOUT with its value, or not",
         Pass<ParseOnOff, &SimulatedMaster::SetReportProcessOutput>},
        {"param N INDEX SUBINDEX [BYTE,BYTE...]", "set a parameter; bytes in hexadecimal",
         Parameter},
        {"devinfo N NUMBER,NUMBER...", "replace the device information", DeviceInfo},
        {"id N TEXT", "replace its ID", Id},
        {"usb-control N MS|refuse|ignore", "delay, refuse or ignore control requests", UsbControl},
        {"usb-halt N in|out", "halt an endpoint", UsbHalt},
        {"usb-cut N BYTES", "cut transfers to BYTES; 0 ends this",
         SetUsb<ParseCount, &UsbFaults::longestTransfer>},
        {"usb-error N COUNT", "fail the next COUNT transfers",
         SetUsb<ParseCount, &UsbFaults::failingTransfers>},
        {"usb-reset N", "reset the device", &Self::HandleUsbReset},
        {"usb-text N manufacturer|product|serial [TEXT]",
         "replace or remove a text at the next plug", UsbText},
        {"usb-descriptor N BYTES|all", "cut the descriptor at the next plug",
         SetUsb<ParseLength, &UsbFaults::configurationLength>},
        {"usb-move N", "use another port at the next plug", UsbMove},
        {"show N [--json]", "print the state of master and gripper", &Self::HandleShow},
        {"wait MS", "pause before the next line", &Self::HandleWait},
        {"int", "send SIGINT to COMMAND, as Ctrl-C does", &Self::HandleInterrupt},
        {"help [COMMAND]", "print this list, or a line of it", &Self::HandleHelp},
    };
    return kCommands;
}

/// Null if there is no command `name`.
const CommandInterpreter::Command* CommandInterpreter::Find(const std::string& name) {
    const auto command = std::ranges::find(Commands(), std::string_view(name), &Command::Name);
    return command == Commands().end() ? nullptr : &*command;
}

CommandInterpreter::CommandInterpreter(Cell& cell, Bus& bus, Printer reply, Interrupt interrupt)
    : cell(cell),
      bus(bus),
      reply(std::move(reply)),
      interrupt(std::move(interrupt)),
      devicesPresent(cell.Size()) {}

std::chrono::milliseconds CommandInterpreter::Execute(const std::string& line) {
    CommandWords words(line);
    const auto name = words.TakeIfAny();
    if (!name || name->starts_with('#')) {
        return {};
    }
    pause = {};
    replied = false;
    const Command* const command = Find(*name);
    if (command == nullptr) {
        reply("usage: " + UnknownText(*name));
        return {};
    }
    try {
        if (const auto* const parse = std::get_if<Work (*)(CommandWords&)>(&command->handler)) {
            const std::size_t number = TakeNumber(words);
            const Work work = (*parse)(words);
            words.End();
            cell.Call(number, work);
        } else {
            (this->*std::get<0>(command->handler))(words);
        }
        if (!replied) {
            reply("ok " + line);
        }
    } catch (const UsageError& error) {
        reply("usage: " + std::string(command->usage) + "; " + error.what());
    } catch (const std::exception& error) {
        reply("error: " + std::string(error.what()));
    }
    return pause;
}

/// Takes the number of a master.
std::size_t CommandInterpreter::TakeNumber(CommandWords& words) const {
    const std::size_t number = ParseUnsigned(words.Take(), kLargestNumber);
    if (number >= cell.Size()) {
        throw std::runtime_error("no master " + std::to_string(number));
    }
    return number;
}

std::size_t CommandInterpreter::TakeLastNumber(CommandWords& words) const {
    const std::size_t number = TakeNumber(words);
    words.End();
    return number;
}

void CommandInterpreter::Plug(std::size_t number) {
    cell.Call(number, [this, number](Station& station) {
        if (station.port) {
            throw std::runtime_error("the master is already plugged in");
        }
        station.port = bus.CreatePort(number, station);
        station.master->PowerUp(Clock::now());
        if (bus.StartsCooked() && station.simulated != nullptr) {
            station.simulated->FillBuffer(Clock::now());
        }
    });
    bus.Attach(number);
    devicesPresent[number] = true;
}

void CommandInterpreter::HangUp(std::size_t number, bool reported) {
    bus.PrepareHangUp(number, reported);
    cell.Call(number, [reported](Station& station) {
        if (station.port || reported) {
            station.master->HangUp(reported, Clock::now());
        }
        station.port.reset();
    });
}

void CommandInterpreter::HandleHelp(CommandWords& words) {
    const auto name = words.TakeIfAny();
    words.End();
    if (name && Find(*name) == nullptr) {
        throw std::runtime_error(UnknownText(*name));
    }
    constexpr std::size_t kUsageWidth = 26;
    for (const Command& command : Commands()) {
        if (name && command.Name() != *name) {
            continue;
        }
        std::string usage = "  " + std::string(command.usage);
        if (usage.size() >= kUsageWidth) {
            reply(usage);
            usage.clear();
        }
        usage.resize(kUsageWidth, ' ');
        reply(usage + std::string(command.purpose));
    }
}

void CommandInterpreter::HandlePlug(CommandWords& words) {
    Plug(TakeLastNumber(words));
}

void CommandInterpreter::HandleUnplug(CommandWords& words) {
    const std::size_t number = TakeLastNumber(words);
    if (!devicesPresent[number]) {
        throw std::runtime_error("the master is not plugged in");
    }
    HangUp(number, true);
    bus.Detach(number);
    devicesPresent[number] = false;
}

void CommandInterpreter::HandleHangUp(CommandWords& words) {
    HangUp(TakeLastNumber(words), false);
}

void CommandInterpreter::HandleEvent(CommandWords& words) {
    const std::size_t number = TakeNumber(words);
    const std::string action = words.Take();
    words.End();
    bus.SendEvent(number, action);
}

void CommandInterpreter::HandleUsbReset(CommandWords& words) {
    bus.Reset(TakeLastNumber(words));
}

void CommandInterpreter::HandleShow(CommandWords& words) {
    const std::string first = words.Take();
    const std::string second = words.TakeIfAny().value_or("");
    words.End();
    const bool isJson = first == kJsonOption || second == kJsonOption;
    if (!second.empty() && !isJson) {
        throw UsageError("unexpected argument '" + second + "'");
    }
    CommandWords numberWord(first == kJsonOption ? second : first);
    const std::size_t number = TakeLastNumber(numberWord);
    cell.Call(number, [&](Station& station) {
        Gripper(station);
        const SimulatedMaster& master = Simulated(station);
        if (isJson) {
            reply("state " + StateReport(number, master, station.port.get(), station.usb.get()));
            replied = true;
            return;
        }
        for (const std::string& line : StateLines(number, master, station.port.get())) {
            reply("  " + line);
        }
    });
}

void CommandInterpreter::HandleWait(CommandWords& words) {
    const auto time = ParseMilliseconds(words.Take());
    words.End();
    pause = time;
}

void CommandInterpreter::HandleInterrupt(CommandWords& words) {
    words.End();
    if (!interrupt()) {
        throw std::runtime_error("COMMAND is not running");
    }
}

}  // namespace simulator
