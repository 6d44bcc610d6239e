#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

#include <xmlrpc-c/base.hpp>

#include "daemon/AbyssServer.h"

/// A port of 127.0.0.1 that nobody listens on, and none of the daemon's own.
unsigned FreePort();

/// Threads of this process. A server has one more for each connection, and takes 2 s to end when it
/// is terminated while one of them still runs.
std::ptrdiff_t CountThreads();

/// A server in a thread of its own, as main runs it; terminated and joined at the end.
class RunningServer {
public:
    /// Returns when the server answers.
    explicit RunningServer(GripperManager* manager = nullptr);
    RunningServer(const RunningServer&) = delete;
    RunningServer& operator=(const RunningServer&) = delete;
    ~RunningServer();

    AbyssServer& Server() { return server; }
    unsigned Port() const { return server.getPort(); }

    /// The outcome of one call, on a connection of its own that is gone afterwards.
    xmlrpc_c::rpcOutcome Call(const std::string& method,
                              const xmlrpc_c::paramList& parameters) const;

    /// The answer as values::Describe() tells it, or "fault" and its text.
    std::string Answer(const std::string& method, const xmlrpc_c::paramList& parameters) const;

    bool HasReturned() const { return returned; }
    bool WaitUntilReturned() const;

    pthread_t Thread() { return thread.native_handle(); }

private:
    AbyssServer server;
    std::atomic<bool> returned = false;
    std::thread thread;
};
