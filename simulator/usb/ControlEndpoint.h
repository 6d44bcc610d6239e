#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/usb/UsbFaults.h"

namespace simulator {

/// Endpoint 0 of a master: answers control requests and keeps what they set. Not thread-safe.
class ControlEndpoint {
public:
    using Setup = std::array<std::uint8_t, 8>;

    /// The faults outlive the endpoint. It keeps those that take effect when it is plugged in, and
    /// clears halts on request.
    explicit ControlEndpoint(UsbFaults& faults);

    /// @param data from the host
    /// @return data for the host, at most as many as it wants; nothing if the request is refused
    std::optional<std::string> Answer(const Setup& setup, std::string_view data);

    /// True while a program has the tty open.
    bool IsOpened() const { return terminalReady; }

private:
    struct Request;

    std::optional<std::string> AnswerStandard(const Request& request);
    std::optional<std::string> AnswerClass(const Request& request, std::string_view data);
    std::optional<std::string> ClearHalt(std::uint16_t endpoint);
    void ClearHalts();

    UsbFaults& faults;
    UsbTexts texts;
    std::optional<std::size_t> configurationLength;
    std::uint8_t configuration = 0;
    std::string lineCoding;
    bool terminalReady = false;
};

}  // namespace simulator
