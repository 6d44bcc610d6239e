#include "simulator/UeventSender.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "simulator/FileDescriptor.h"

namespace simulator {

namespace {

/// What libudev expects in front of the properties; its socket filter looks at the hash.
struct MessageHeader {
    std::array<char, 8> prefix{'l', 'i', 'b', 'u', 'd', 'e', 'v', '\0'};
    std::uint32_t magic = htonl(0xfeedcafe);
    std::uint32_t headerSize = sizeof(MessageHeader);
    std::uint32_t propertiesOffset = sizeof(MessageHeader);
    std::uint32_t propertiesLength = 0;
    std::uint32_t subsystemHash = htonl(0x8afa90c8);  // MurmurHash2 of "tty"
    std::uint32_t devtypeHash = 0;
    std::uint32_t tagBloomHigh = 0;
    std::uint32_t tagBloomLow = 0;
};

std::string BuildMessage(const std::vector<std::string>& properties) {
    std::string body;
    for (const std::string& property : properties) {
        body += property;
        body += '\0';
    }
    MessageHeader header;
    header.propertiesLength = static_cast<std::uint32_t>(body.size());
    std::string message(sizeof header, '\0');
    std::memcpy(message.data(), &header, sizeof header);
    return message + body;
}

enum class Delivery { Done, NoRoom, Gone };

Delivery Deliver(const std::string& path, const std::string& message) {
    const FileDescriptor sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const ssize_t count = sendto(sender.Get(), message.data(), message.size(), MSG_NOSIGNAL,
                                 reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (count != -1) {
        return Delivery::Done;
    }
    return errno == EAGAIN ? Delivery::NoRoom : Delivery::Gone;
}

}  // namespace

UeventSender::UeventSender(std::filesystem::path testbedFolder)
    : folder(std::move(testbedFolder)), thread([this] { DrainLoop(); }) {}

UeventSender::~UeventSender() {
    {
        const std::lock_guard lock(mutex);
        stopping = true;
    }
    condition.notify_all();
    thread.join();
}

void UeventSender::Send(const std::vector<std::string>& properties) {
    constexpr std::size_t kLongestBacklog = 200;
    const std::string message = BuildMessage(properties);
    bool lost = false;
    const std::lock_guard lock(mutex);
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (!entry.path().filename().string().starts_with("event")) {
            continue;
        }
        Messages& messages = backlog[entry.path()];
        lost = lost || messages.size() >= kLongestBacklog;
        if (messages.size() < kLongestBacklog) {
            messages.push_back(message);
        }
    }
    Drain();
    condition.notify_all();
    if (lost) {
        throw std::runtime_error("a udev monitor reads no events; it misses this one");
    }
}

/// Sends what the monitors have room for; called with the lock held.
void UeventSender::Drain() {
    for (auto place = backlog.begin(); place != backlog.end();) {
        auto& [path, messages] = *place;
        Delivery delivery = Delivery::Done;
        while (!messages.empty() && delivery == Delivery::Done) {
            delivery = Deliver(path, messages.front());
            if (delivery == Delivery::Done) {
                messages.pop_front();
            }
        }
        place = delivery == Delivery::NoRoom ? std::next(place) : backlog.erase(place);
    }
}

/// Tries again for as long as a monitor is behind.
void UeventSender::DrainLoop() {
    constexpr std::chrono::milliseconds kRetryPause{5};
    std::unique_lock lock(mutex);
    while (!stopping) {
        if (backlog.empty()) {
            condition.wait(lock);
        } else {
            condition.wait_for(lock, kRetryPause);
            Drain();
        }
    }
}

}  // namespace simulator
