#include "daemon/Process.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <string_view>
#include <thread>

#include "common/LogLine.h"

namespace TavrikDaemon {

std::atomic<GripperManager*> gripperManager = nullptr;
std::atomic<AbyssServer*> server0 = nullptr;
std::atomic<AbyssServer*> server1 = nullptr;
const int exitStatus = 0;
std::atomic<bool> interrupted = false;

namespace {

constexpr std::chrono::milliseconds kHandlerPoll{1};

std::atomic<bool> serversRetired = false;
std::atomic<int> handlersRunning = 0;  // signal handlers that may be using a server

/// Calls write() directly: streams are not async-signal-safe.
void WriteError(std::string_view text) {
    [[maybe_unused]] const ssize_t count = ::write(STDERR_FILENO, text.data(), text.size());
}

void WriteSignalNumber(int signal) {
    constexpr std::string_view kText = "TavrikDaemon::handler caught signal: ";
    std::array<char, 64> line;
    char* end = line.data() + kText.copy(line.data(), kText.size());
    end = std::to_chars(end, line.data() + line.size() - 1, signal).ptr;
    *end++ = '\n';
    WriteError({line.data(), static_cast<std::size_t>(end - line.data())});
}

void TerminateServers() {
    ++handlersRunning;
    if (!serversRetired) {
        if (AbyssServer* const server = server0) {
            server->terminate();
        }
        if (AbyssServer* const server = server1) {
            server->terminate();
        }
    }
    --handlersRunning;
}

}  // namespace

void handler(int signal) {
    const int savedErrno = errno;
    if (signal == SIGINT) {
        WriteError("TavrikDaemon::handler caught CTRL-C\n");
        TerminateServers();
        interrupted = true;
    } else {
        WriteSignalNumber(signal);
    }
    errno = savedErrno;
}

void shutdown() {
    delete gripperManager.load();
    WriteError("TavrikDaemon::shutdown\n");
}

void* runServer(void* server) {
    auto& abyssServer = *static_cast<AbyssServer*>(server);
    LogLine() << "Port number: " << abyssServer.getPort();
    abyssServer.run();
    return nullptr;
}

void retireServers() {
    serversRetired = true;
    while (handlersRunning != 0) {
        std::this_thread::sleep_for(kHandlerPoll);
    }
}

}  // namespace TavrikDaemon
