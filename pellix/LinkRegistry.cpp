#include "pellix/LinkRegistry.h"

#include <algorithm>
#include <chrono>

#include "common/LogLine.h"
#include "pellix/CatchAll.h"
#include "pellix/Protocol.h"

using pellix::CatchAll;
using pellix::Pellix;

namespace {

constexpr std::chrono::milliseconds kLookupTimeout{100};
constexpr int kAddFailed = -1;

/// Escapes line breaks in a client's text, so that it stays on one line of the log.
std::string OnOneLine(const std::string& text) {
    std::string line;
    for (const char c : text) {
        if (c == '\n') {
            line += "\\n";
        } else if (c == '\r') {
            line += "\\r";
        } else {
            line += c;
        }
    }
    return line;
}

}  // namespace

LinkInUse LinkRegistry::GetLink(const std::string& deviceString) {
    const std::unique_lock<std::timed_mutex> lock(mutex, kLookupTimeout);
    if (!lock) {
        LogLine() << "Timeout while trying to acquire lock within 100 ms";
        return nullptr;
    }
    for (Pellix* const link : links) {
        if (link != nullptr && link->IsNamed(deviceString) &&
            Pellix::IsMasterProduct(link->GetID())) {
            link->Pin();
            return LinkInUse(link);
        }
    }
    LogLine() << "Device '" << OnOneLine(deviceString) << "' not found";
    return nullptr;
}

std::vector<std::string> LinkRegistry::GetGrippers() {
    std::vector<std::string> deviceStrings;
    const std::lock_guard<std::timed_mutex> lock(mutex);
    for (Pellix* const link : links) {
        if (link == nullptr) {
            continue;
        }
        if (!Pellix::IsMasterProduct(link->GetID())) {
            LogLine() << "Invalid device ID";
            link->RequestID();
            continue;
        }
        std::string deviceString = link->GetDeviceString();
        if (!deviceString.empty()) {
            deviceStrings.push_back(std::move(deviceString));
        } else if (link->IsConnected()) {
            LogLine() << "Device string is empty (but device connected)";
        } else {
            LogLine() << "Device string is empty (device not connected)";
        }
    }
    return deviceStrings;
}

int LinkRegistry::AddDevice(const std::string& node) {
    if (HasLink(node)) {
        LogLine() << "PELLIX has a link already: " << node;
        return 0;
    }
    std::unique_ptr<Pellix> link;
    unsigned result = pellix::kResultOk;
    if (CatchAll([&] {
            link = std::make_unique<Pellix>(node);
            result = link->Init();
        })) {
        LogLine() << "Failed to initialize PELLIX";
        return kAddFailed;
    }
    if (result != pellix::kResultOk) {
        link.reset();
        LogLine() << "Failed to initialize new device: " << result;
        return static_cast<int>(result);
    }
    // On purpose: returns success although the link is lost, because the master itself answered.
    if (CatchAll([&] { Append(std::move(link)); })) {
        LogLine() << "Failed to add PELLIX to list";
    }
    return 0;
}

bool LinkRegistry::HasLink(const std::string& node) {
    const std::lock_guard<std::timed_mutex> lock(mutex);
    return std::ranges::any_of(links, [&node](const Pellix* link) {
        return link != nullptr && link->GetPortName() == node;
    });
}

void LinkRegistry::Append(std::unique_ptr<Pellix> link) {
    const std::lock_guard<std::timed_mutex> lock(mutex);
    if (!closed) {
        links.push_back(link.get());
        (void)link.release();  // links owns it from here on
    }
}

void LinkRegistry::RemoveDevice(const std::string& node) {
    std::unique_lock<std::timed_mutex> lock(mutex);
    LogLine() << "Removing " << node;
    // On purpose: skips the entry that moves into a freed position, because nodes are unique.
    for (std::size_t i = 0; i < links.size(); ++i) {
        if (links[i] == nullptr || links[i]->GetPortName() != node) {
            continue;
        }
        if (CatchAll([&] { Remove(i, lock); })) {
            LogLine() << "Failed to remove PELLIX from list: " << node;
        }
    }
}

/// Waits for the calls that use the link without holding the lock, so that calls to other links
/// continue. The link is already off the list, so that no new call finds it.
void LinkRegistry::Remove(std::size_t position, std::unique_lock<std::timed_mutex>& lock) {
    std::unique_ptr<Pellix> link(links[position]);
    links.erase(links.begin() + static_cast<std::ptrdiff_t>(position));
    LogLine() << "PELLIX removed: " << link->GetPortName();
    link->Stop();
    if (link->IsPinned()) {
        lock.unlock();
        link->WaitUntilUnpinned();
        lock.lock();
    }
    link.reset();
}

std::unique_lock<std::timed_mutex> LinkRegistry::Close() {
    std::unique_lock<std::timed_mutex> lock(mutex);
    closed = true;
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (Pellix* const link : links) {
        if (link != nullptr) {
            link->WaitUntilUnpinned(deadline);
        }
    }
    // On purpose: destroys only every other link, because the list shrinks while i grows; the end
    // of the process frees the rest. The threads of those links are all stopped first, because
    // silent masters would otherwise delay the stop by seconds each, one after the other.
    for (std::size_t position = 0; position < links.size(); position += 2) {
        if (links[position] != nullptr) {
            links[position]->EndThreads();
        }
    }
    for (std::size_t i = 1; i <= links.size(); ++i) {
        if (CatchAll([&] {
                const std::unique_ptr<Pellix> link(links[i - 1]);
                links.erase(links.begin() + static_cast<std::ptrdiff_t>(i - 1));
                LogLine() << "PELLIX " << i - 1 << " removed";
            })) {
            LogLine() << "Failed to remove PELLIX " << i - 1 << " from queue";
        }
    }
    return lock;
}
