#include "tests/fuzz/AnsweringLink.h"

#include <memory>

#include "pellix/CatchAll.h"
#include "pellix/Protocol.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/support/Pty.h"
#include "tests/support/SlowProtocol.h"

namespace {

constexpr double kAlwaysOver = -1.0;  // seconds; CheckTimeouts() expires every command
constexpr unsigned kReplyKinds = 6;

struct PresetParameter {
    std::uint8_t index;
    std::uint8_t subindex;
    std::uint8_t value;
};

pellix::Pellix& TheLink() {
    static support::Pty tty;  // needed for construction only; never read or written
    static pellix::Pellix link(tty.Path());
    return link;
}

std::string Decimal(const AnsweringLink::Numbers& numbers) {
    std::string text = "[";
    for (const std::uint32_t number : numbers) {
        text += (text.size() > 1 ? "," : "") + std::to_string(number);
    }
    return text + "]";
}

}  // namespace

/// Replaces the link's connection by the test's. This file is compiled without access control.
AnsweringLink::AnsweringLink(InputBytes& bytes) : input(bytes), link(TheLink()) {
    link.commandHandler.reset();  // refers to the device handler, which is replaced next
    link.deviceHandler = std::make_unique<pellix::DeviceHandler>();
    line = new support::FakeConnection;
    link.commandHandler =
        std::make_unique<pellix::CommandHandler>(line, link.deviceHandler.get(), kAlwaysOver);
    line->onWrite = [this] { Answer(); };
    FillDevice();
}

void AnsweringLink::FillDevice() {
    pellix::Device& device = link.GetDevice();
    device.SetPDIN(input.List<std::uint8_t>());
    device.SetPDOUT(input.List<std::uint8_t>());
    device.SetDeviceInfo(input.List<std::uint32_t>());
    for (const auto& preset : input.List<PresetParameter>()) {
        device.SetParameter(preset.index, preset.subindex, {preset.value});
    }
}

void AnsweringLink::Begin() {
    sentBefore = line->Writes().size();
    status.reset();
}

void AnsweringLink::RequireSent(const std::string& text) const {
    const std::vector<std::string> writes = line->Writes();
    Require(writes.size() == sentBefore + 1 && writes.back() == text,
            "one request is sent, and the right one");
}

void AnsweringLink::RequireNothingSent() const {
    Require(line->Writes().size() == sentBefore, "no request is sent");
}

void AnsweringLink::RequireStatus(unsigned result) const {
    Require(!status || result == *status, "the result is that of the request");
}

void AnsweringLink::Answer() {
    const std::string request = line->Writes().back();
    const std::string key = request.substr(0, request.find_first_of("?="));
    line->writeResult = 0;
    switch (input.Byte() % kReplyKinds) {
        case 0:
            Receive("ACK " + key + "\nFIN " + key + "\n", pellix::kResultOk);
            break;
        case 1: {
            const std::uint8_t code = input.Byte();
            Receive("ERR " + key + " " + std::to_string(code) + "\n", code);
            break;
        }
        case 2:
            Receive(DataLine(key), pellix::kResultOk);
            break;
        case 3: {
            const auto text = input.List<char>();
            Receive(std::string(text.begin(), text.end()) + "\n", std::nullopt);
            break;
        }
        case 4:
            line->writeResult = -1;
            status = pellix::kResultNoCommand;
            break;
        default:
            status = pellix::kResultTimeout;
            break;
    }
    link.commandHandler->CheckTimeouts();
}

std::string AnsweringLink::DataLine(const std::string& key) {
    return key + "=" +
           (key == "DEVINFO" ? Decimal(input.List<std::uint32_t>())
                             : support::SlowFormat(input.List<std::uint8_t>())) +
           "\n";
}

void AnsweringLink::Receive(const std::string& text, std::optional<unsigned> result) {
    status = result;
    line->input.push_back(text);
    // An invalid line ends the pass; the next pass handles the rest.
    while (pellix::CatchAll([this] { link.commandHandler->Parse(); })) {
    }
}
