// bench-load: keeps servers busy with one call, checks every answer, and prints the latencies.

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <exception>
#include <latch>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>

#include "simulator/FileDescriptor.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;
using RealClock = std::chrono::system_clock;  // as in the kernel's timestamps
using simulator::Checked;
using simulator::FileDescriptor;
using std::chrono::nanoseconds;

constexpr unsigned kWarmUpCalls = 50;  // not counted
constexpr timeval kLongestSilence{.tv_sec = 10, .tv_usec = 0};

struct Options {
    std::vector<std::uint16_t> ports;
    unsigned connections = 1;
    double seconds = 1;
    std::string method;
    std::string device;
    std::optional<unsigned> number;
    double expected = 0;
    std::string finFile;
};

std::string BuildRequest(const Options& options) {
    std::string body = "<?xml version=\"1.0\"?>\r\n<methodCall><methodName>" + options.method +
                       "</methodName><params><param><value><string>" + options.device +
                       "</string></value></param>";
    if (options.number) {
        body += "<param><value><int>" + std::to_string(*options.number) + "</int></value></param>";
    }
    body += "</params></methodCall>";
    return "POST /RPC2 HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\n\r\n" + body;
}

/// @param answer the bytes of an HTTP answer so far
/// @return whether the answer is complete
/// @throws std::runtime_error unless it has status 200 and a length or chunks
bool IsWhole(const std::string& answer) {
    const std::size_t headerEnd = answer.find("\r\n\r\n");
    if (headerEnd == std::string::npos) {
        return false;
    }
    if (!answer.starts_with("HTTP/1.1 200 ")) {
        throw std::runtime_error("status: " + answer.substr(0, answer.find('\r')));
    }
    const std::size_t bodyLength = answer.size() - headerEnd - 4;
    constexpr std::string_view kLength = "\r\nContent-Length: ";
    if (const char* const field = strcasestr(answer.c_str(), kLength.data())) {
        const std::size_t length = std::strtoul(field + kLength.size(), nullptr, 10);
        if (bodyLength > length) {
            throw std::runtime_error("more bytes than the answer's length: " + answer);
        }
        return bodyLength == length;
    }
    if (strcasestr(answer.c_str(), "\r\nTransfer-Encoding: chunked\r\n") == nullptr) {
        throw std::runtime_error("answer without a length: " + answer);
    }
    return answer.ends_with("\r\n0\r\n\r\n");
}

/// @return whether `answer` has exactly one XML-RPC value, the expected number in any notation
bool HoldsOnly(std::string_view answer, double expected) {
    constexpr std::string_view kOpening = "<value>";
    const std::size_t opening = answer.find(kOpening);
    if (opening == std::string_view::npos || opening != answer.rfind(kOpening)) {
        return false;
    }
    const std::size_t type = answer.find('>', opening + kOpening.size());
    if (type == std::string_view::npos) {
        return false;
    }
    double number = 0;
    const auto [end, error] =
        std::from_chars(answer.data() + type + 1, answer.data() + answer.size(), number);
    answer.remove_prefix(static_cast<std::size_t>(end - answer.data()));
    return error == std::errc() && number == expected && answer.starts_with("</") &&
           answer.find("></value>") != std::string_view::npos;
}

/// One connection that makes the same call repeatedly, each after the answer to the one before.
/// Read its results after Run().
class Client {
public:
    /// @param ownFinFile to which bench-cell writes the time of FIN: a latency is then the time
    ///     from FIN to the last byte that the server sends; null for the whole call
    Client(const Options& options, std::uint16_t port, const FileDescriptor* ownFinFile)
        : request(BuildRequest(options)), expected(options.expected), finFile(ownFinFile) {
        const int on = 1;
        setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &kLongestSilence, sizeof kLongestSilence);
        // The kernel records when the last byte of an answer arrives. On one machine, this is when
        // the server sends it, however late this client wakes up to read it.
        const int noteArrivals = finFile != nullptr ? 1 : 0;
        setsockopt(socket.Get(), SOL_SOCKET, SO_TIMESTAMPNS, &noteArrivals, sizeof noteArrivals);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        Checked(connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
                "connect");
        // Takes no memory until it is used. A vector that grows would add to latencies.
        constexpr std::size_t kRoomForCalls = std::size_t{1} << 20;
        latencies.reserve(kRoomForCalls);
    }

    /// Warms up, waits for the other clients, and makes calls for `time` or until the connection
    /// fails.
    void Run(std::latch& warmedUp, Clock::duration time) {
        try {
            WarmUp();
        } catch (const std::exception& failure) {
            NoteWrong(failure.what());
        }
        warmedUp.arrive_and_wait();
        start = end = Clock::now();
        if (wrong != 0) {
            return;
        }
        try {
            while (end - start < time) {
                const auto called = end;
                const auto calledAt =
                    finFile == nullptr ? RealClock::time_point() : RealClock::now();
                Call();
                end = Clock::now();
                latencies.push_back(finFile == nullptr ? end - called : SinceFin(calledAt));
            }
        } catch (const std::exception& failure) {
            NoteWrong(failure.what());
        }
    }

    unsigned warmUpCalls = 0;
    std::vector<nanoseconds> latencies;
    Clock::time_point start;
    Clock::time_point end;
    std::uint64_t wrong = 0;  // unexpected answers and failed calls
    std::string firstWrong;

private:
    /// The kernel begins to record arrivals a moment after the option was set.
    void WarmUp() {
        constexpr unsigned kMostCalls = 100 * kWarmUpCalls;
        const auto isReady = [this] {
            return finFile == nullptr || arrival != RealClock::time_point();
        };
        while (warmUpCalls < kWarmUpCalls || (!isReady() && warmUpCalls < kMostCalls)) {
            Call();
            ++warmUpCalls;
        }
    }

    void Call() {
        if (send(socket.Get(), request.data(), request.size(), MSG_NOSIGNAL) !=
            std::ssize(request)) {
            throw std::system_error(errno, std::generic_category(), "send");
        }
        answer.clear();
        do {
            Receive();
        } while (!IsWhole(answer));
        if (!HoldsOnly(answer, expected)) {
            NoteWrong("wrong answer: " + answer);
        }
    }

    /// Appends to `answer`.
    void Receive() {
        std::array<char, 4096> buffer;
        iovec part{buffer.data(), buffer.size()};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(timespec))> control;
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        ssize_t count = 0;
        do {
            count = recvmsg(socket.Get(), &message, 0);
        } while (count < 0 && errno == EINTR);  // SIGSTOP ends a wait that has a timeout
        if (count <= 0) {
            throw std::system_error(count == 0 ? ECONNRESET : errno, std::generic_category(),
                                    "recvmsg");
        }
        answer.append(buffer.data(), static_cast<std::size_t>(count));
        if (const cmsghdr* const noted = CMSG_FIRSTHDR(&message)) {
            timespec time{};
            std::memcpy(&time, CMSG_DATA(noted), sizeof time);
            arrival = RealClock::time_point(std::chrono::seconds(time.tv_sec) +
                                            nanoseconds(time.tv_nsec));
        }
    }

    nanoseconds SinceFin(RealClock::time_point called) {
        nanoseconds::rep nanosecondsOfFin = 0;
        pread(finFile->Get(), &nanosecondsOfFin, sizeof nanosecondsOfFin, 0);
        const RealClock::time_point fin{nanoseconds(nanosecondsOfFin)};
        if (fin < called || arrival < fin) {
            NoteWrong("no FIN before the answer");
        }
        return arrival - fin;
    }

    void NoteWrong(const std::string& reason) {
        if (wrong++ == 0) {
            firstWrong = reason;
        }
    }

    FileDescriptor socket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::string request;
    double expected;
    const FileDescriptor* finFile;
    std::string answer;
    RealClock::time_point arrival;  // of the last answer
};

/// @return whether all answers were right
bool Report(const std::deque<Client>& clients) {
    std::vector<nanoseconds> latencies;
    auto start = Clock::time_point::max();
    auto end = Clock::time_point::min();
    unsigned warmUpCalls = 0;
    std::uint64_t wrong = 0;
    for (const Client& client : clients) {
        latencies.insert(latencies.end(), client.latencies.begin(), client.latencies.end());
        start = std::min(start, client.start);
        end = std::max(end, client.end);
        warmUpCalls += client.warmUpCalls;
        wrong += client.wrong;
    }
    std::ranges::sort(latencies);
    const auto calls = static_cast<double>(latencies.size());
    // The smallest latency that at least `percent` of all do not exceed.
    const auto percentileUs = [&](double percent) {
        if (latencies.empty()) {
            return 0.0;
        }
        const auto rank = static_cast<std::size_t>(std::ceil(percent / 100 * calls));
        return std::chrono::duration<double, std::micro>(latencies[rank - 1]).count();
    };
    const double seconds = std::chrono::duration<double>(end - start).count();
    std::printf(
        "{\"warmUpCalls\": %u, \"calls\": %zu, \"seconds\": %.6f, \"callsPerSecond\": %.1f, "
        "\"p50Us\": %.2f, \"p90Us\": %.2f, \"p99Us\": %.2f, \"p999Us\": %.2f, \"maxUs\": %.2f, "
        "\"wrong\": %llu}\n",
        warmUpCalls, latencies.size(), seconds, latencies.empty() ? 0 : calls / seconds,
        percentileUs(50), percentileUs(90), percentileUs(99), percentileUs(99.9), percentileUs(100),
        static_cast<unsigned long long>(wrong));
    return wrong == 0;
}

int Run(const Options& options) {
    const FileDescriptor finFile(open(options.finFile.c_str(), O_RDONLY | O_CLOEXEC));
    if (!options.finFile.empty() && finFile.Get() == -1) {
        throw std::system_error(errno, std::generic_category(), options.finFile);
    }
    std::deque<Client> clients;
    for (unsigned number = 0; number < options.connections; ++number) {
        clients.emplace_back(options, options.ports[number % options.ports.size()],
                             options.finFile.empty() ? nullptr : &finFile);
    }
    {
        const auto time = std::chrono::duration_cast<Clock::duration>(
            std::chrono::duration<double>(options.seconds));
        std::latch warmedUp(static_cast<std::ptrdiff_t>(clients.size()));
        std::deque<std::jthread> threads;
        for (Client& client : clients) {
            threads.emplace_back([&, time] { client.Run(warmedUp, time); });
        }
    }
    if (Report(clients)) {
        return EXIT_SUCCESS;
    }
    const auto first =
        std::ranges::find_if(clients, [](const auto& one) { return one.wrong != 0; });
    std::fprintf(stderr, "bench-load: %s\n", first->firstWrong.c_str());
    return EXIT_FAILURE;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    try {
        bench::Options options;
        CLI::App app("Keeps servers on 127.0.0.1 busy with one call and checks every answer.",
                     "bench-load");
        app.add_option("--ports", options.ports)->delimiter(',')->required();
        app.add_option("--connections", options.connections, "spread over the ports")
            ->check(CLI::Range(1, 1000));
        app.add_option("--seconds", options.seconds)->check(CLI::PositiveNumber);
        app.add_option("--method", options.method)->required();
        app.add_option("--device", options.device, "the first parameter")->required();
        app.add_option("--int", options.number, "the second parameter");
        app.add_option("--expect", options.expected, "the number that answers every call")
            ->required();
        app.add_option(
            "--fin-file", options.finFile,
            "a call lasts from the time in this file, by bench-cell, to the last byte sent");
        CLI11_PARSE(app, argc, argv);
        return bench::Run(options);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench-load: error: %s\n", failure.what());
        return EXIT_FAILURE;
    }
}
