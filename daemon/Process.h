#pragma once

#include <atomic>

#include "daemon/AbyssServer.h"
#include "pellix/GripperManager.h"

/// State and functions that main, the signal handler and the exit routine share.
namespace TavrikDaemon {

/// Set by main; deleted, but not cleared, by shutdown().
extern std::atomic<GripperManager*> gripperManager;

/// The servers, which are on the stack of main. Null until both threads were created; never
/// cleared.
extern std::atomic<AbyssServer*> server0;
extern std::atomic<AbyssServer*> server1;

/// Return value of main after a normal stop.
extern const int exitStatus;

/// Set after SIGINT, as a marker for a debugger; nothing reads it.
extern std::atomic<bool> interrupted;

/// Handler of SIGINT: terminates server0 and server1 if they are set. Any other signal is only
/// reported. Makes only async-signal-safe calls and preserves errno.
void handler(int signal);

/// Exit routine: deletes the GripperManager.
void shutdown();

/// Start routine of a server thread. An exception of the server ends the process.
/// @param server an AbyssServer, not owned
/// @return null, after the server was terminated
void* runServer(void* server);

/// Keeps handler() from using the servers from now on. Blocks until no handler is using one.
void retireServers();

}  // namespace TavrikDaemon
