#pragma once

#include <atomic>

#include "daemon/AbyssServer.h"
#include "pellix/GripperManager.h"

/// The process frame around the servers: what `main`, the signal and the exit routine share.
namespace TavrikDaemon {

/// The one link registry; set by main, deleted by shutdown() and not cleared.
extern std::atomic<GripperManager*> gripperManager;

/// The servers on the stack of main, null until both threads were created;
/// never cleared.
extern std::atomic<AbyssServer*> server0;
extern std::atomic<AbyssServer*> server1;

/// What main returns after a normal stop.
extern const int exitStatus;

/// Set when SIGINT came; a plain marker.
extern std::atomic<bool> interrupted;

/// SIGINT: terminates both servers once they are published. Only async-signal-safe calls, and
/// errno stays as it was.
void handler(int signal);

/// Exit routine: destroys the GripperManager.
void shutdown();

/// Start routine of a server thread: serves `server`, an AbyssServer, until it is terminated.
/// What the server throws ends the process.
void* runServer(void* server);

/// From now on handler() leaves the servers alone; returns when no handler is inside one.
void retireServers();

}  // namespace TavrikDaemon
