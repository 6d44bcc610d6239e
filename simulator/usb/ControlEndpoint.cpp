#include "simulator/usb/ControlEndpoint.h"

#include "simulator/usb/Descriptors.h"

namespace simulator {

namespace {

// Request type and request, as in the first two bytes of a setup packet.
constexpr std::uint16_t kGetDeviceStatus = 0x8000;
constexpr std::uint16_t kGetInterfaceStatus = 0x8100;
constexpr std::uint16_t kGetEndpointStatus = 0x8200;
constexpr std::uint16_t kClearEndpointFeature = 0x0201;
constexpr std::uint16_t kGetDescriptor = 0x8006;
constexpr std::uint16_t kGetConfiguration = 0x8008;
constexpr std::uint16_t kSetConfiguration = 0x0009;
constexpr std::uint16_t kGetInterface = 0x810a;
constexpr std::uint16_t kSetInterface = 0x010b;
constexpr std::uint16_t kSetLineCoding = 0x2120;
constexpr std::uint16_t kGetLineCoding = 0xa121;
constexpr std::uint16_t kSetLineState = 0x2122;
constexpr std::uint16_t kSendBreak = 0x2123;

constexpr std::uint16_t kEndpointHalt = 0;
constexpr std::uint16_t kTerminalReady = 1;  // DTR
constexpr std::uint16_t kToHost = 0x80;      // of an endpoint's address
constexpr std::uint16_t kDataInterface = 1;  // has both bulk endpoints
constexpr std::size_t kLineCodingLength = 7;

}  // namespace

struct ControlEndpoint::Request {
    explicit Request(const Setup& setup)
        : code(static_cast<std::uint16_t>(setup[0] << 8U | setup[1])),
          value(static_cast<std::uint16_t>(setup[3] << 8U | setup[2])),
          index(static_cast<std::uint16_t>(setup[5] << 8U | setup[4])),
          length(static_cast<std::uint16_t>(setup[7] << 8U | setup[6])) {}

    std::uint16_t code;
    std::uint16_t value;
    std::uint16_t index;
    std::uint16_t length;
};

ControlEndpoint::ControlEndpoint(UsbFaults& faults)
    : faults(faults),
      texts(faults.texts),
      configurationLength(faults.configurationLength),
      lineCoding("\x00\xc2\x01\x00\x00\x00\x08", kLineCodingLength) {}  // 115200 baud, 8N1

std::optional<std::string> ControlEndpoint::Answer(const Setup& setup, std::string_view data) {
    const Request request(setup);
    constexpr unsigned kKindMask = 0x60;
    auto answer =
        (setup[0] & kKindMask) == 0 ? AnswerStandard(request) : AnswerClass(request, data);
    if (answer && answer->size() > request.length) {
        answer->resize(request.length);
    }
    return answer;
}

std::optional<std::string> ControlEndpoint::AnswerStandard(const Request& request) {
    switch (request.code) {
        case kGetDescriptor:
            return descriptors::Find(static_cast<descriptors::Type>(request.value >> 8U),
                                     static_cast<std::uint8_t>(request.value & 0xffU), texts,
                                     configurationLength);
        case kSetConfiguration:
            if (request.value > 1) {
                return std::nullopt;
            }
            configuration = static_cast<std::uint8_t>(request.value);
            terminalReady = false;
            ClearHalts();
            return "";
        case kGetConfiguration:
            return std::string(1, static_cast<char>(configuration));
        case kSetInterface:
            if (request.value != 0) {
                return std::nullopt;
            }
            if (request.index == kDataInterface) {
                ClearHalts();
            }
            return "";
        case kGetInterface:
            return std::string(1, '\0');
        case kGetDeviceStatus:
            return std::string("\x01\x00", 2);  // self-powered
        case kGetInterfaceStatus:
            return std::string(2, '\0');
        case kGetEndpointStatus: {
            const bool toHost = (request.index & kToHost) != 0;
            const bool bulk = (request.index & ~kToHost) == descriptors::kBulkEndpoint;
            const bool halted = bulk && (toHost ? faults.haltedIn : faults.haltedOut);
            return std::string(1, static_cast<char>(halted)) + '\0';
        }
        case kClearEndpointFeature:
            return request.value == kEndpointHalt ? ClearHalt(request.index) : std::nullopt;
        default:
            return std::nullopt;
    }
}

std::optional<std::string> ControlEndpoint::ClearHalt(std::uint16_t endpoint) {
    const bool toHost = (endpoint & kToHost) != 0;
    if ((endpoint & ~kToHost) == descriptors::kBulkEndpoint) {
        bool& halted = toHost ? faults.haltedIn : faults.haltedOut;
        faults.counts.clearedHalts += halted ? 1 : 0;
        halted = false;
    }
    return "";
}

/// As a device does when its host chooses a configuration or a setting of the data interface.
void ControlEndpoint::ClearHalts() {
    faults.haltedIn = false;
    faults.haltedOut = false;
}

std::optional<std::string> ControlEndpoint::AnswerClass(const Request& request,
                                                        std::string_view data) {
    switch (request.code) {
        case kSetLineCoding:
            if (data.size() != kLineCodingLength) {
                return std::nullopt;
            }
            lineCoding = data;
            return "";
        case kGetLineCoding:
            return lineCoding;
        case kSetLineState:
            terminalReady = (request.value & kTerminalReady) != 0;
            return "";
        case kSendBreak:
            return "";
        default:
            return std::nullopt;
    }
}

}  // namespace simulator
