#include "doctor/PortCheck.h"

#include <algorithm>

#include "common/Version.h"

namespace tavrik {

namespace {

/// GetVersion waits for nothing in the daemon.
constexpr std::chrono::milliseconds kPatienceWithPort = std::chrono::seconds(3);

/// The failure without the address, which the subject tells.
std::string Reason(const Endpoint& endpoint, const Failure& failure) {
    const std::string text = failure.what();
    const std::string address = endpoint.Address() + " ";
    return text.starts_with(address) ? text.substr(address.size()) : text;
}

}  // namespace

PortCheck::PortCheck(const Endpoint& server, const Host* machine)
    : endpoint(server), host(machine), subject("port " + std::to_string(server.port)) {
    endpoint.timeout = std::min(endpoint.timeout, kPatienceWithPort);
}

Findings PortCheck::Run() {
    const auto sockets = host == nullptr ? std::nullopt : ListTcpSockets(endpoint.port);
    if (!sockets) {
        return {Ask(nullptr)};
    }
    const TcpSocket* const first = sockets->empty() ? nullptr : &sockets->front();
    return {first != nullptr && first->IsListening() ? Ask(first) : WithoutListener(first)};
}

Finding PortCheck::Ask(const TcpSocket* listener) {
    try {
        version = Daemon(endpoint).Get<std::string>("GetVersion");
        return Judge(listener == nullptr ? "" : HolderText(*listener) + " listens, ");
    } catch (const Failure& failure) {
        return Unanswered(listener, failure);
    }
}

Finding PortCheck::Judge(const std::string& listens) const {
    const std::string number = version->substr(0, version->find(' '));
    const std::string text = listens + "version " + number;
    if (number != TAVRIK_VERSION) {
        return {Mark::Warning, subject, text + ", not " TAVRIK_VERSION " like tavrikctl",
                "after an upgrade: systemctl restart tavrikdaemon"};
    }
    return {Mark::Ok, subject, text, ""};
}

Finding PortCheck::Unanswered(const TcpSocket* listener, const Failure& failure) const {
    if (listener == nullptr) {
        return {Mark::Wrong, subject, Reason(endpoint, failure),
                "check the host name, its firewall and network.conf; run there: tavrikctl doctor"};
    }
    const std::string text =
        HolderText(*listener) + " holds the port: " + Reason(endpoint, failure);
    const auto holder = host->processes.HolderOfSocket(listener->inode);
    if (holder && host->daemon && holder->pid == host->daemon->pid) {
        return {Mark::Wrong, subject, text,
                "close idle clients (it serves 15); make sure that its log is read; otherwise "
                "restart it"};
    }
    return {Mark::Wrong, subject, text, RemedyForHolder(*listener)};
}

Finding PortCheck::WithoutListener(const TcpSocket* socket) const {
    if (socket == nullptr && host->daemon && !host->daemon->isStopped) {
        return {Mark::Wrong, subject, "no program listens; TavrikDaemon is starting or stopping",
                "wait: at startup it waits up to 5.5 s for each silent master"};
    }
    if (socket == nullptr) {
        return {Mark::Wrong, subject, "no program listens", ""};
    }
    if (socket->inode == 0) {
        return {Mark::Wrong, subject, "held by a closed connection",
                "wait a minute, then: " + host->StartCommand()};
    }
    return {Mark::Wrong, subject,
            HolderText(*socket) + " holds the port for a connection of its own",
            RemedyForHolder(*socket)};
}

std::string PortCheck::HolderText(const TcpSocket& socket) const {
    const auto holder = host->processes.HolderOfSocket(socket.inode);
    return holder ? holder->Text() : "a program of user " + UserName(socket.user);
}

std::string PortCheck::RemedyForHolder(const TcpSocket& socket) const {
    const bool isNamed = host->processes.HolderOfSocket(socket.inode).has_value();
    return (isNamed || host->processes.SeesAll()
                ? ""
                : "to see which program, run as root: tavrikctl doctor; ") +
           ("stop it, then: " + host->StartCommand());
}

}  // namespace tavrik
