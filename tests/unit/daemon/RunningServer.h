#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

#include <xmlrpc-c/base.hpp>

#include "daemon/AbyssServer.h"

/// The kernel gives the port to no other program until this was called four times more; a socket
/// with SO_REUSEADDR may listen at it.
/// @return a free port of 127.0.0.1 that is not one of the daemon's
unsigned FreePort();

/// A server has one thread more for each connection. If one of them still runs when the server is
/// terminated, the server takes 2 s to end.
/// @return number of threads of this process
std::ptrdiff_t CountThreads();

/// Runs a server in its own thread, as main does. The destructor terminates and joins it.
class RunningServer {
public:
    /// Waits until the server answers.
    explicit RunningServer(GripperManager* manager = nullptr);
    RunningServer(const RunningServer&) = delete;
    RunningServer& operator=(const RunningServer&) = delete;
    ~RunningServer();

    AbyssServer& Server() { return server; }
    unsigned Port() const { return server.getPort(); }

    /// Makes one call on its own connection and closes the connection.
    xmlrpc_c::rpcOutcome Call(const std::string& method,
                              const xmlrpc_c::paramList& parameters) const;

    /// @return the result as values::Describe(), or "fault" and its text
    std::string Answer(const std::string& method, const xmlrpc_c::paramList& parameters) const;

    bool HasReturned() const { return returned; }
    bool WaitUntilReturned() const;

    pthread_t Thread() { return thread.native_handle(); }

private:
    AbyssServer server;
    std::atomic<bool> returned = false;
    std::thread thread;
};
