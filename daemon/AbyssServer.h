#pragma once

#include <atomic>

#include <xmlrpc-c/registry.hpp>
#include <xmlrpc-c/server_abyss.hpp>

#include "pellix/GripperManager.h"

/// The XML-RPC method set on one TCP port: 40 methods, most of them for one gripper.
class AbyssServer {
public:
    /// Fills the registry; nothing listens yet.
    /// @param manager not owned; outlives the server
    /// @param tcpPort port to serve on, on all interfaces
    AbyssServer(GripperManager* manager, unsigned tcpPort);
    AbyssServer(const AbyssServer&) = delete;
    AbyssServer& operator=(const AbyssServer&) = delete;

    /// Terminates the server if it still runs. No handler may be inside terminate() any more.
    virtual ~AbyssServer();

    unsigned getPort() const { return port; }

    /// Serves until terminate(). The library runs each connection's calls on a thread of its own.
    /// If the library gives up, which it does only when out of memory, that is logged and it serves
    /// again.
    /// @throws std::exception if the port cannot be bound
    void run();

    /// Blocks until run() has its server, so that terminate() reaches it. Any thread.
    void waitUntilRunning() const { hasServer.wait(false); }

    /// Makes run() return, if it is serving; about 2 s later when a client keeps an idle
    /// connection open. Any thread, and signal handlers.
    void terminate();

private:
    std::atomic<xmlrpc_c::serverAbyss*> server = nullptr;  // on the stack of run()
    std::atomic<bool> hasServer = false;                   // once set, stays
    std::atomic<int> terminators = 0;                      // threads inside terminate()
    static_assert(decltype(server)::is_always_lock_free &&
                      decltype(terminators)::is_always_lock_free,
                  "both are used in signal handlers");
    xmlrpc_c::registry registry;
    unsigned port;
};
