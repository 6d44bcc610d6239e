// The library: when it cannot accept a connection, or cannot create a thread for one, its server
// gives up and returns without waiting for the connections that it has.
// Without this: out of descriptors or threads for a moment, the daemon serves more connections than
// it should, and at its stop they use the memory of a server that is gone.
// Shown by: ShortageTest in tests/integration/test_clients.py.
// Can go: when the library's server tries again by itself.

#include <chrono>
#include <cstddef>
#include <thread>

#include <xmlrpc-c/abyss.h>

#include "common/LogLine.h"
#include "common/NextFunction.h"
#include "pellix/CatchAll.h"

namespace {

constexpr std::chrono::milliseconds kRetryPause{100};

/// After so many attempts a connection without a thread is closed: nothing else can end the wait,
/// not even a stop.
constexpr int kMostThreadAttempts = 50;

thread_local bool failing = false;  // of a server's thread: its last attempt failed

/// Logs the first failure of a series, and waits for what was lacking.
/// @param reason freed, and null afterwards
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

// Declared by the library's internal headers only.
struct TThread;
using TThreadProc = void(void* userHandle);
using TThreadDoneFn = void(void* userHandle);

/// Waits for a connection. Instead of an error it reports that there is none yet, so that the
/// server looks whether it was terminated, and calls again.
void ChanSwitchAccept(TChanSwitch* chanSwitchP, TChannel** channelPP, void** channelInfoPP,
                      const char** errorP) {
    static auto* const next = fence::NextFunction<decltype(ChanSwitchAccept)>("ChanSwitchAccept");
    next(chanSwitchP, channelPP, channelInfoPP, errorP);
    if (*errorP != nullptr) {
        *channelPP = nullptr;
        PauseAfterFailure(*errorP);
    }
}

/// Creates the thread of a connection that was accepted, or closes the connection: to the library
/// it is one that has ended already.
/// @param threadPP null afterwards if there is no thread
/// @param threadDone what the thread would call at its end
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

/// Joins the thread of a connection that has ended, if it ever had one.
void ThreadWaitAndRelease(TThread* threadP) {
    static auto* const next =
        fence::NextFunction<decltype(ThreadWaitAndRelease)>("ThreadWaitAndRelease");
    if (threadP != nullptr) {
        next(threadP);
    }
}

}  // extern "C"
