#include "tests/unit/daemon/FailingConnection.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <xmlrpc-c/abyss.h>

#include "common/NextFunction.h"

namespace {

std::atomic<bool> failsNext = false;

}  // namespace

void FailNextConnection() {
    failsNext = true;
}

extern "C" {

struct TConn;
using ConnectionFunction = void(void* userHandle);

/// Replaces the library's function of this name.
void ConnCreate(TConn** connectionPP, TServer* serverP, TChannel* channelP, void* channelInfoP,
                ConnectionFunction* job, std::size_t jobStackSize, ConnectionFunction* done,
                int foregroundBackground, abyss_bool useSigchld, const char** errorP) {
    static auto* const next = fence::NextFunction<decltype(ConnCreate)>("ConnCreate");
    if (failsNext.exchange(false)) {
        *errorP = strdup("no memory");
        return;
    }
    next(connectionPP, serverP, channelP, channelInfoP, job, jobStackSize, done,
         foregroundBackground, useSigchld, errorP);
}

}  // extern "C"
