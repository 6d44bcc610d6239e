// The library: if its server cannot accept a connection, or cannot create a thread for one, it
// returns without waiting for its open connections.
// Without this: after a short lack of descriptors or threads, the daemon serves more connections
// than its limit, and at its stop they use the memory of a destroyed server.
// Shown by: ShortageTest in tests/integration/test_clients.py.
// Can go: when the library's server retries by itself.

#include <chrono>
#include <cstddef>
#include <thread>

#include <xmlrpc-c/abyss.h>

#include "common/LogLine.h"
#include "common/NextFunction.h"
#include "pellix/CatchAll.h"

namespace {

constexpr std::chrono::milliseconds kRetryPause{100};

/// After this many attempts to create its thread, a connection is closed: nothing else, not even a
/// stop of the daemon, can end the wait.
constexpr int kMostThreadAttempts = 50;

thread_local bool failing = false;  // the last attempt of this server thread failed

/// Logs the first failure of a series and waits for 100 ms.
/// @param reason freed and set to null
void PauseAfterFailure(const char*& reason) {
    if (!failing) {
        pellix::CatchAll(
            [&] { LogLine() << "No connection accepted: " << reason << ". Trying again"; });
    }
    failing = true;
    xmlrpc_strfree(reason);
    reason = nullptr;
    std::this_thread::sleep_for(kRetryPause);
}

}  // namespace

extern "C" {

// Only the library's internal headers declare this.
struct TThread;
using TThreadProc = void(void* userHandle);
using TThreadDoneFn = void(void* userHandle);

/// Waits for a connection. Reports "no connection yet" instead of an error, so that the server
/// checks whether it was terminated and calls again.
void ChanSwitchAccept(TChanSwitch* chanSwitchP, TChannel** channelPP, void** channelInfoPP,
                      const char** errorP) {
    static auto* const next = fence::NextFunction<decltype(ChanSwitchAccept)>("ChanSwitchAccept");
    next(chanSwitchP, channelPP, channelInfoPP, errorP);
    if (*errorP != nullptr) {
        *channelPP = nullptr;
        PauseAfterFailure(*errorP);
    }
}

/// Creates the thread of an accepted connection. If that fails, closes the connection, which then
/// looks to the library like one that has already ended.
/// @param threadPP set to null if there is no thread
/// @param threadDone the thread calls this at its end
void ThreadCreate(TThread** threadPP, void* userHandle, TThreadProc* func,
                  TThreadDoneFn* threadDone, abyss_bool useSigchld, std::size_t stackSize,
                  const char** errorP) {
    static auto* const next = fence::NextFunction<decltype(ThreadCreate)>("ThreadCreate");
    for (int attempt = 0; attempt < kMostThreadAttempts; ++attempt) {
        next(threadPP, userHandle, func, threadDone, useSigchld, stackSize, errorP);
        if (*errorP == nullptr) {
            failing = false;
            return;
        }
        PauseAfterFailure(*errorP);
    }
    pellix::CatchAll([] { LogLine() << "Connection closed: no thread for it"; });
    *threadPP = nullptr;
    threadDone(userHandle);
}

/// Joins the thread of an ended connection, if it had one.
void ThreadWaitAndRelease(TThread* threadP) {
    static auto* const next =
        fence::NextFunction<decltype(ThreadWaitAndRelease)>("ThreadWaitAndRelease");
    if (threadP != nullptr) {
        next(threadP);
    }
}

}  // extern "C"
