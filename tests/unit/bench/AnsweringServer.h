#pragma once

#include <string>
#include <thread>
#include <vector>

#include "simulator/FileDescriptor.h"

namespace bench {

/// A server for one connection, on a free port of 127.0.0.1: answers each request with the next of
/// the texts given, and hangs up on the first one for which there is none.
class AnsweringServer {
public:
    explicit AnsweringServer(const std::vector<std::string>& texts);
    AnsweringServer(const AnsweringServer&) = delete;
    AnsweringServer& operator=(const AnsweringServer&) = delete;

    /// Waits until the client has hung up, or has been hung up on.
    ~AnsweringServer() = default;

    unsigned Port() const;

private:
    void Serve();

    simulator::FileDescriptor listener;
    std::vector<std::string> answers;
    std::jthread thread;
};

}  // namespace bench
