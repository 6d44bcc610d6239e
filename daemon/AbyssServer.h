#pragma once

#include <atomic>

#include <xmlrpc-c/registry.hpp>
#include <xmlrpc-c/server_abyss.hpp>

#include "pellix/GripperManager.h"

/// Serves the XML-RPC methods on one TCP port.
class AbyssServer {
public:
    /// Fills the registry; does not listen yet.
    /// @param manager not owned; outlives the server
    /// @param port TCP port to serve on, on all interfaces
    AbyssServer(GripperManager* manager, unsigned port);
    AbyssServer(const AbyssServer&) = delete;
    AbyssServer& operator=(const AbyssServer&) = delete;

    /// Terminates the server if it still runs. No signal handler may be inside terminate().
    virtual ~AbyssServer();

    unsigned getPort() const { return port; }

    /// Serves until terminate(). The library runs the calls of each connection on its own thread.
    /// If the library gives up, which it does only when out of memory, logs that and serves again.
    /// @throws std::exception if the port cannot be bound
    void run();

    /// Blocks until run() has created its server, so that terminate() has an effect. Any thread.
    void waitUntilRunning() const { hasServer.wait(false); }

    /// Makes run() return, up to about 2 s later if a client keeps an idle connection open. Has no
    /// effect if run() is not serving. Any thread and signal handlers may call.
    void terminate();

private:
    std::atomic<xmlrpc_c::serverAbyss*> server = nullptr;  // on the stack of run()
    std::atomic<bool> hasServer = false;                   // set once, never cleared
    std::atomic<int> terminators = 0;                      // threads inside terminate()
    static_assert(decltype(server)::is_always_lock_free &&
                      decltype(terminators)::is_always_lock_free,
                  "both are used in signal handlers");
    xmlrpc_c::registry registry;
    unsigned port;
};
