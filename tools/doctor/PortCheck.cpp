#include "tools/doctor/PortCheck.h"

#include "tools/Failure.h"
#include "tools/Printable.h"
#include "tools/doctor/TcpSocket.h"

namespace tavrikctl {

namespace {

constexpr const char* kUnknownHolder = "a program that only root can see";

std::string HolderText(const Host& host, const TcpSocket& socket) {
    const auto holder = host.processes.HolderOfSocket(socket.inode);
    return holder ? holder->Text() : kUnknownHolder;
}

}  // namespace

Findings PortCheck::Run() {
    if (host == nullptr) {
        return {Ask("")};
    }
    const auto sockets = ListTcpSockets(endpoint.port);
    const bool isServed = !sockets.empty() && sockets.front().IsListening();
    return {isServed ? Ask(HolderText(*host, sockets.front())) : WithoutListener()};
}

Finding PortCheck::Ask(const std::string& holder) {
    const std::string subject = "port " + std::to_string(endpoint.port);
    try {
        version = Daemon(endpoint).Get<std::string>("GetVersion");
        return {Mark::Ok, subject,
                (holder.empty() ? "" : holder + " listens, ") + "version " +
                    Printable(version.substr(0, version.find(' '))),
                ""};
    } catch (const Failure& failure) {
        return {Mark::Wrong, subject, (holder.empty() ? "" : holder + " has it: ") + failure.what(),
                RemedyForListener(holder)};
    }
}

std::string PortCheck::RemedyForListener(const std::string& holder) const {
    if (host == nullptr) {
        return "is it the right host? Run tavrikctl doctor there; mind the firewall";
    }
    if (host->daemon && holder == host->daemon->Text()) {
        return "close idle clients (it serves 15); the reader of its log must read; else restart "
               "it";
    }
    return "end this program, then: " + host->StartCommand();
}

Finding PortCheck::WithoutListener() const {
    const std::string subject = "port " + std::to_string(endpoint.port);
    const auto sockets = ListTcpSockets(endpoint.port);
    if (!sockets.empty() && sockets.front().inode == 0) {
        return {Mark::Wrong, subject, "held by a connection that has ended",
                "wait a minute, then: " + host->StartCommand()};
    }
    if (!sockets.empty()) {
        return {Mark::Wrong, subject,
                HolderText(*host, sockets.front()) + " has it for a connection of its own",
                "end it, then: " + host->StartCommand() +
                    "; reserve the port: sysctl -w net.ipv4.ip_local_reserved_ports=44221,44222"};
    }
    if (host->daemon) {
        return {Mark::Wrong, subject, "nobody listens; TavrikDaemon is starting or stopping",
                "wait: at its start it tries each silent master for 5.5 s"};
    }
    return {Mark::Wrong, subject, "nobody listens", ""};
}

}  // namespace tavrikctl
