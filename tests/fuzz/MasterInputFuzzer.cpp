// Fuzzes the path of master input through parser, command handler, response handling and device
// model: input split anywhere into reads, with zero bytes and read errors.
//
// An input is a script of steps. A step is one character and a text, which ends at the next "|";
// "\" escapes the character after it.
//   ?NAME  =NAME  (NAME   send a query, an assignment, a call
//   <TEXT  one read that returns TEXT      !  one read that fails
//   .  the senders remove their finished commands           t  all commands time out
//   w  the next write fails      u  p  the tty can no longer be opened, or can again
//   x  the device is removed     *  repeat the previous step ten times
// Any other step is skipped.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pellix/CatchAll.h"
#include "pellix/CommandHandler.h"
#include "pellix/DeviceHandler.h"
#include "pellix/SerialConnection.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/MasterInputModel.h"
#include "tests/support/Allocations.h"
#include "tests/support/Pty.h"
#include "tests/support/ScriptedRead.h"

/// Makes the parser's pauses take no time. The name is the linker's for a wrapped function.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" int __wrap_nanosleep(const timespec* /*time*/, timespec* /*left*/) {
    return 0;
}

namespace {

using pellix::Command;

constexpr double kAlwaysOver = -1.0;  // seconds; CheckTimeouts() expires every command
constexpr unsigned kRepetitions = 10;

struct Step {
    char kind;
    std::string text;
};

std::vector<Step> ReadScript(const std::uint8_t* data, std::size_t size) {
    std::vector<Step> steps;
    bool atStart = true;
    for (std::size_t i = 0; i < size; ++i) {
        const bool isPlain = data[i] == '\\' && i + 1 < size;
        const char c = static_cast<char>(data[isPlain ? ++i : i]);
        if (c == '|' && !isPlain) {
            atStart = true;
        } else if (std::exchange(atStart, false)) {
            steps.push_back({c, {}});
        } else {
            steps.back().text += c;
        }
    }
    return steps;
}

support::Pty& Tty() {
    static support::Pty tty;
    return tty;
}

/// A connection to the tty that writes nothing.
class Line : public pellix::SerialConnection {
public:
    Line() : SerialConnection(Tty().Path()) {}

    int Write(const std::string& /*text*/) override { return std::exchange(result, 0); }

    void FailNextWrite() { result = -1; }

private:
    int result = 0;
};

class Road {
public:
    Road() = default;
    Road(const Road&) = delete;
    Road& operator=(const Road&) = delete;

    ~Road() {
        Plug(true);
        handler.CheckTimeouts();
        model.Expire();
        TakeDone();
        Require(commands.empty(), "every command ends");
    }

    void Do(const Step& step) {
        switch (step.kind) {
            case '?':
                Add(step.text, handler.SendQuery(step.text));
                break;
            case '=':
                Add(step.text, handler.SendAssignment(step.text, "[0]"));
                break;
            case '(':
                Add(step.text, handler.SendCall(step.text, {"1"}));
                break;
            case '<':
                Read(step.text);
                break;
            case '!':
                Read(std::nullopt);
                break;
            case '.':
                TakeDone();
                break;
            case 't':
                handler.CheckTimeouts();
                model.Expire();
                break;
            case 'w':
                line->FailNextWrite();
                writeFails = true;
                break;
            case 'u':
            case 'p':
                Plug(step.kind == 'p');
                break;
            case 'x':
                handler.SetDeviceRemoved();
                removed = true;
                break;
            default:
                break;
        }
        CheckCommands();
        CheckDevice();
    }

    bool HasForgottenParameters() const { return model.hasForgottenParameters; }

private:
    void Add(const std::string& name, Command* command) {
        const bool isSent = !removed && !std::exchange(writeFails, false);
        Require((command != nullptr) == isSent, "a sent request has a command");
        if (isSent) {
            commands.push_back(command);
            model.commands.push_back({name, pellix::kActive, 0});
        }
    }

    /// Runs passes, as the parser thread does, until one has read.
    void Read(const std::optional<std::string>& text) {
        for (bool isRead = false; !isRead;) {
            isRead = model.IsReading();
            const support::ScriptedRead read(text);
            const bool isThrown = pellix::CatchAll([this] { handler.Parse(); }).has_value();
            Require(isThrown == model.Pass(text), "only invalid error numbers throw");
        }
    }

    void TakeDone() {
        for (std::size_t i = 0; i < commands.size();) {
            if (!commands[i]->IsDone()) {
                ++i;
                continue;
            }
            Require(handler.WaitForFinished(commands[i]) == model.commands[i].state,
                    "the sender gets the last state");
            handler.RemovePending(commands[i]);
            const auto offset = static_cast<std::ptrdiff_t>(i);
            commands.erase(commands.begin() + offset);
            model.commands.erase(model.commands.begin() + offset);
        }
    }

    void Plug(bool on) {
        if (on && !model.plugged) {
            Tty().RestorePath();
        } else if (!on && model.plugged) {
            Tty().RemovePath();
        }
        model.plugged = on;
    }

    void CheckCommands() {
        for (std::size_t i = 0; i < commands.size(); ++i) {
            const MasterInputModel::Command& expected = model.commands[i];
            Require(commands[i]->GetName() == expected.name, "a command keeps its name");
            Require(commands[i]->GetState() == expected.state, "replies set the state");
            Require(commands[i]->GetStatus() == expected.status, "replies set the status");
            const auto oldest =
                static_cast<std::size_t>(model.Find(expected.name) - model.commands.data());
            Require(handler.FindActive(expected.name) == commands[oldest],
                    "the oldest of equal names is found");
        }
    }

    void CheckDevice() {
        pellix::Device& device = deviceHandler.GetDevice();
        Require(device.GetMode() == model.mode, "the mode is that of the last mode line");
        Require(device.GetPDIN() == model.pdin, "process input data");
        Require(device.GetPDOUT() == model.pdout, "process output data");
        Require(device.GetDeviceInfo() == model.deviceInfo, "device information");
        Require(deviceHandler.GetID() == model.id, "ID");
        for (const auto& [address, value] : model.parameters) {
            Require(device.GetParameter(address.first, address.second) == value, "parameter");
        }
    }

    pellix::DeviceHandler deviceHandler;
    Line* const line = new Line;  // owned by the handler
    pellix::CommandHandler handler{line, &deviceHandler, kAlwaysOver, std::chrono::milliseconds(0)};
    std::vector<Command*> commands;  // oldest first, as in the model
    MasterInputModel model;
    bool removed = false;
    bool writeFails = false;
};

void Play(Road& road, const std::vector<Step>& steps) {
    for (const Step& step : steps) {
        road.Do(step);
    }
}

/// Requires that repeated input uses no more memory. A device that drops its parameters leaks them
/// on purpose.
void CheckMemory(Road& road, std::vector<Step> reads) {
    reads.push_back({'<', "\n"});  // first handles the lines after an invalid one
    Play(road, reads);
    const std::size_t before = support::LiveBytes();
    Play(road, reads);
    Require(support::LiveBytes() == before || road.HasForgottenParameters(),
            "memory use is constant");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<Step> script = ReadScript(data, size);
    std::vector<Step> reads;
    Road road;
    for (std::size_t i = 0; i < script.size(); ++i) {
        if (script[i].kind == '<') {
            reads.push_back(script[i]);
        }
        if (script[i].kind == '*' && i > 0) {
            Play(road, std::vector<Step>(kRepetitions, script[i - 1]));
        } else {
            road.Do(script[i]);
        }
    }
    Play(road, {{'p', {}}, {'t', {}}, {'.', {}}});
    CheckMemory(road, reads);
    return 0;
}
