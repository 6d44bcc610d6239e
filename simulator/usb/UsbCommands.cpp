#include "simulator/usb/UsbCommands.h"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>

namespace simulator::usb_commands {

namespace {

constexpr unsigned kLargestNumber = 1000000000;

UsbFaults& Faults(const Station& station) {
    if (!station.usb) {
        throw std::runtime_error("the master is not on USB: start pellix-sim with --usb");
    }
    return *station.usb;
}

}  // namespace

Work Control(CommandWords& words) {
    using Kind = UsbFaults::Control;
    const std::string word = words.Take();
    Kind kind = Kind::Answer;
    std::chrono::milliseconds delay{0};
    if (word == "refuse") {
        kind = Kind::Refuse;
    } else if (word == "ignore") {
        kind = Kind::Ignore;
    } else {
        delay = std::chrono::milliseconds(ParseUnsigned(word, kLargestNumber));
    }
    return [kind, delay](const Station& station) {
        Faults(station).control = kind;
        Faults(station).controlDelay = delay;
    };
}

Work Halt(CommandWords& words) {
    const bool toHost = ParseChoice(words.Take(), "in", "out");
    return [toHost](const Station& station) {
        (toHost ? Faults(station).haltedIn : Faults(station).haltedOut) = true;
    };
}

Work Cut(CommandWords& words) {
    const unsigned length = ParseUnsigned(words.Take(), kLargestNumber);
    return [length](const Station& station) { Faults(station).longestTransfer = length; };
}

Work Error(CommandWords& words) {
    const unsigned count = ParseUnsigned(words.Take(), kLargestNumber);
    return [count](const Station& station) { Faults(station).failingTransfers = count; };
}

Work Text(CommandWords& words) {
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
        Faults(station).texts.*text = value.empty() ? std::nullopt : std::optional(value);
    };
}

Work Descriptor(CommandWords& words) {
    const std::string word = words.Take();
    const auto length = word == "all"
                            ? std::nullopt
                            : std::optional<std::size_t>(ParseUnsigned(word, kLargestNumber));
    return [length](const Station& station) { Faults(station).configurationLength = length; };
}

Work Move(CommandWords& /*words*/) {
    return [](const Station& station) { Faults(station).otherPort = true; };
}

}  // namespace simulator::usb_commands
