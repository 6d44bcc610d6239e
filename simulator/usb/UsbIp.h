#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// The messages between the kernel's virtual host controller and a program that plays its device
/// (USB/IP). A header has 48 bytes, big endian.
namespace simulator::usbip {

constexpr std::size_t kHeaderLength = 48;

/// Longest data of a message. The driver of the tty sends 1280 bytes at most.
constexpr std::size_t kLongestData = 65536;

enum class Direction : std::uint32_t { Out = 0, In = 1 };

/// Linux error numbers of a transfer.
namespace status {
constexpr int kOk = 0;
constexpr int kStall = -32;      // EPIPE
constexpr int kProtocol = -71;   // EPROTO
constexpr int kUnlinked = -104;  // ECONNRESET
}  // namespace status

/// The host starts a transfer.
struct Submit {
    std::uint32_t sequence = 0;
    Direction direction = Direction::Out;
    std::uint32_t endpoint = 0;
    std::uint32_t length = 0;             ///< of the data, or of the room for them
    std::array<std::uint8_t, 8> setup{};  ///< of endpoint 0
    std::string data;                     ///< from the host
};

/// The host takes a transfer back.
struct Unlink {
    std::uint32_t sequence = 0;
    std::uint32_t target = 0;  ///< sequence number of the transfer
};

using Message = std::variant<Submit, Unlink>;

/// The other side does not speak the protocol, or wants what the device does not have.
class ProtocolError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Assembles messages from received bytes.
class MessageReader {
public:
    /// @return the messages that `bytes` complete
    /// @throws ProtocolError
    std::vector<Message> Add(std::string_view bytes);

private:
    std::string partialMessage;
};

/// Answers a transfer. The device takes all bytes of a transfer from the host, or none of it if it
/// fails.
/// @param data for the host, at most as long as the room of a transfer to it
std::string SubmitReply(const Submit& submit, int status, std::string_view data = {});

/// @param status kUnlinked if the transfer has been taken back, kOk if it had been answered before
std::string UnlinkReply(const Unlink& unlink, int status);

}  // namespace simulator::usbip
