#include "doctor/Ports.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include "client/Daemon.h"
#include "common/Ports.h"
#include "common/Version.h"
#include "doctor/Host.h"

namespace tavrik {

namespace {

constexpr unsigned kListening = 0x0a;  // TCP_LISTEN of the kernel

/// An address in the kernel's digits that accepts IPv4: IPv4, IPv4 mapped to IPv6, or any.
bool AcceptsIpv4(const std::string& address) {
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
    unsigned localPort = 0;
    if (words && colon != std::string::npos && AcceptsIpv4(local.substr(0, colon)) &&
        std::istringstream(local.substr(colon + 1)) >> std::hex >> localPort && localPort == port) {
        sockets.push_back(socket);
    }
}

std::string HolderText(const Host& host, const TcpSocket& socket) {
    const auto holder = host.processes.HolderOfSocket(socket.inode);
    return holder ? holder->Text() : "a program of user " + UserName(socket.user);
}

std::string RemedyForHolder(const Host& host, const TcpSocket& socket) {
    const auto holder = host.processes.HolderOfSocket(socket.inode);
    if (holder) {
        return "kill " + std::to_string(holder->pid) + "; " + host.StartCommand();
    }
    return (host.processes.CanReadAllOpenFiles()
                ? "stop it, then: "
                : "to see which program, run as root: tavrikctl doctor; ") +
           host.StartCommand();
}

/// The finding for a port on which no program listens.
/// @param socket one that holds the port all the same, or null
Finding ExplainNoListener(const std::string& subject, const Host& host, const TcpSocket* socket) {
    if (socket == nullptr && host.daemon && !host.daemon->isStopped) {
        return {Mark::Wrong, subject, "no program listens; TavrikDaemon is starting or stopping",
                "wait: at startup it waits up to 5.5 s for each silent master"};
    }
    if (socket == nullptr) {
        return {Mark::Wrong, subject, "no program listens"};
    }
    if (socket->inode == 0) {
        return {Mark::Wrong, subject, "held by a closed connection",
                "wait a minute, then: " + host.StartCommand()};
    }
    return {Mark::Wrong, subject,
            HolderText(host, *socket) + " holds the port for a connection of its own",
            RemedyForHolder(host, *socket)};
}

/// The finding for a port on which GetVersion failed.
/// @param listener who listens; null if that is not known
Finding ExplainNoVersion(const std::string& subject, const Host* host, const TcpSocket* listener,
                         const Endpoint& endpoint, std::string reason) {
    if (const std::string address = endpoint.Address() + " "; reason.starts_with(address)) {
        reason.erase(0, address.size());  // the subject has it
    }
    if (listener == nullptr) {
        return {Mark::Wrong, subject, reason,
                "check the host name, its firewall and network.conf; run there: tavrikctl doctor"};
    }
    const std::string text = HolderText(*host, *listener) + " holds the port: " + reason;
    const auto holder = host->processes.HolderOfSocket(listener->inode);
    if (holder && host->daemon && holder->pid == host->daemon->pid) {
        return {Mark::Wrong, subject, text,
                "close idle clients (it serves 15): ss -tnp state established 'sport = :" +
                    std::to_string(endpoint.port) +
                    "'; make sure that its log is read; otherwise: " + host->StartCommand()};
    }
    return {Mark::Wrong, subject, text, RemedyForHolder(*host, *listener)};
}

std::string FirstLine(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

}  // namespace

bool TcpSocket::IsListening() const {
    return state == kListening;
}

std::optional<std::vector<TcpSocket>> ListTcpSockets(unsigned port, const std::string& folder) {
    if (!std::ifstream(folder + "tcp")) {
        return std::nullopt;
    }
    std::vector<TcpSocket> sockets;
    for (const char* const table : {"tcp", "tcp6"}) {
        std::ifstream file(folder + table);
        for (std::string line; std::getline(file, line);) {
            AddSocket(line, port, sockets);
        }
    }
    std::ranges::stable_sort(sockets, {}, [](const TcpSocket& socket) {
        return socket.IsListening() ? 0 : socket.inode != 0 ? 1 : 2;
    });
    return sockets;
}

bool IsPortInList(unsigned port, const std::string& list) {
    std::istringstream ranges(list);
    for (std::string range; std::getline(ranges, range, ',');) {
        std::istringstream numbers(range);
        unsigned first = 0;
        if (numbers >> first) {
            char dash = 0;
            unsigned last = 0;
            if (!(numbers >> dash >> last)) {
                last = first;
            }
            if (first <= port && port <= last) {
                return true;
            }
        }
    }
    return false;
}

PortResult CheckPort(Endpoint endpoint, const Host* host, const std::stop_token& stop) {
    // GetVersion waits for nothing in the daemon.
    constexpr std::chrono::milliseconds kPatience = std::chrono::seconds(3);
    endpoint.timeout = std::min(endpoint.timeout, kPatience);
    const std::string subject = "port " + std::to_string(endpoint.port);
    const auto sockets = host == nullptr ? std::nullopt : ListTcpSockets(endpoint.port);
    const TcpSocket* const first = sockets && !sockets->empty() ? &sockets->front() : nullptr;
    if (sockets && (first == nullptr || !first->IsListening())) {
        return {ExplainNoListener(subject, *host, first), std::nullopt};
    }
    try {
        const auto version = Daemon(endpoint, stop).Get<std::string>("GetVersion");
        const std::string number = version.substr(0, version.find(' '));
        const std::string text =
            (first == nullptr ? "" : HolderText(*host, *first) + " listens, ") + "version " +
            number;
        if (number != TAVRIK_VERSION) {
            return {{Mark::Warning, subject, text + ", not " TAVRIK_VERSION " like tavrikctl",
                     "after an upgrade: systemctl restart tavrikdaemon"},
                    version};
        }
        return {{Mark::Ok, subject, text}, version};
    } catch (const Failure& failure) {
        return {ExplainNoVersion(subject, host, first, endpoint, failure.what()), std::nullopt};
    }
}

Finding CheckReservation(const std::string& folder) {
    constexpr const char* kSubject = "port range";
    std::istringstream range(FirstLine(folder + "ip_local_port_range"));
    unsigned first = 0;
    unsigned last = 0;
    if (!(range >> first >> last)) {
        return {Mark::Unknown, kSubject, "failed to read which ports outgoing connections may use"};
    }
    const std::string reserved = FirstLine(folder + "ip_local_reserved_ports");
    if (std::ranges::none_of(kPorts, [&](unsigned port) {
            return first <= port && port <= last && !IsPortInList(port, reserved);
        })) {
        return {Mark::Ok, kSubject, "no outgoing connection can take the two ports"};
    }
    return {Mark::Warning, kSubject, "an outgoing connection may take a port: not reserved",
            "sysctl -w net.ipv4.ip_local_reserved_ports=" + reserved +
                (reserved.empty() ? "" : ",") + std::to_string(kPorts[0]) + "," +
                std::to_string(kPorts[1]) +
                " ; to keep this after a reboot, add both to the last file in sysctl.d that sets "
                "it"};
}

}  // namespace tavrik
