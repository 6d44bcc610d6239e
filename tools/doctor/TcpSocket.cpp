#include "tools/doctor/TcpSocket.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>

namespace tavrikctl {

namespace {

constexpr unsigned kListening = 0x0a;  // TCP_LISTEN of the kernel

/// Adds the socket of one line of the kernel's table, which begins:
/// sl local_address rem_address st tx_queue:rx_queue tr:when retrnsmt uid timeout inode
void AddSocket(const std::string& line, unsigned port, std::vector<TcpSocket>& sockets) {
    std::istringstream words(line);
    std::string ignored;
    std::string local;
    TcpSocket socket = {};
    words >> ignored >> local >> ignored >> std::hex >> socket.state >> std::dec;
    words >> ignored >> ignored >> ignored >> ignored >> ignored >> socket.inode;
    const std::size_t colon = local.rfind(':');
    unsigned itsPort = 0;
    if (words && colon != std::string::npos &&
        std::istringstream(local.substr(colon + 1)) >> std::hex >> itsPort && itsPort == port) {
        sockets.push_back(socket);
    }
}

}  // namespace

bool TcpSocket::IsListening() const {
    return state == kListening;
}

std::vector<TcpSocket> ListTcpSockets(unsigned port) {
    std::vector<TcpSocket> sockets;
    for (const char* const table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream file(table);
        for (std::string line; std::getline(file, line);) {
            AddSocket(line, port, sockets);
        }
    }
    std::stable_partition(sockets.begin(), sockets.end(),
                          [](const TcpSocket& each) { return each.IsListening(); });
    return sockets;
}

}  // namespace tavrikctl
