#include "doctor/TcpSocket.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace tavrik {

namespace {

constexpr unsigned kListening = 0x0a;  // TCP_LISTEN of the kernel

/// An address in the kernel's digits: one of IPv4, by itself or in one of IPv6, or any.
bool TakesIpv4(const std::string& address) {
    constexpr std::size_t kDigitsOfIpv4 = 8;
    return address.size() == kDigitsOfIpv4 || address.starts_with("0000000000000000FFFF0000") ||
           address.find_first_not_of('0') == std::string::npos;
}

/// Adds the socket of one line of the kernel's table, which begins:
/// sl local_address rem_address st tx_queue:rx_queue tr:when retrnsmt uid timeout inode
void AddSocket(const std::string& line, unsigned port, std::vector<TcpSocket>& sockets) {
    std::istringstream words(line);
    std::string ignored;
    std::string local;
    TcpSocket socket = {};
    words >> ignored >> local >> ignored >> std::hex >> socket.state >> std::dec;
    words >> ignored >> ignored >> ignored >> socket.user >> ignored >> socket.inode;
    const std::size_t colon = local.rfind(':');
    unsigned itsPort = 0;
    if (words && colon != std::string::npos && TakesIpv4(local.substr(0, colon)) &&
        std::istringstream(local.substr(colon + 1)) >> std::hex >> itsPort && itsPort == port) {
        sockets.push_back(socket);
    }
}

}  // namespace

bool TcpSocket::IsListening() const {
    return state == kListening;
}

std::optional<std::vector<TcpSocket>> ListTcpSockets(unsigned port, const std::string& tables) {
    if (!std::ifstream(tables + "tcp")) {
        return std::nullopt;
    }
    std::vector<TcpSocket> sockets;
    for (const char* const table : {"tcp", "tcp6"}) {
        std::ifstream file(tables + table);
        for (std::string line; std::getline(file, line);) {
            AddSocket(line, port, sockets);
        }
    }
    const auto others = std::stable_partition(
        sockets.begin(), sockets.end(), [](const TcpSocket& each) { return each.IsListening(); });
    std::stable_partition(others, sockets.end(),
                          [](const TcpSocket& each) { return each.inode != 0; });
    return sockets;
}

}  // namespace tavrik
