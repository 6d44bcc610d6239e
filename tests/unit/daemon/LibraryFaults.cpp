#include "tests/unit/daemon/LibraryFaults.h"

#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <thread>

#include <xmlrpc-c/abyss.h>
#include <xmlrpc-c/server_abyss.hpp>

#include "common/NextFunction.h"
#include "tests/support/WaitFor.h"

namespace {

std::atomic<bool> failsNext = false;

constexpr std::chrono::milliseconds kPollPeriod{1};

using Terminate = void (*)(xmlrpc_c::serverAbyss*);
const auto libraryTerminate =
    reinterpret_cast<Terminate>(::dlsym(RTLD_NEXT, "_ZN8xmlrpc_c11serverAbyss9terminateEv"));

std::atomic<bool> held = false;
std::atomic<bool> inside = false;

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

/// Replaces the library's function.
void xmlrpc_c::serverAbyss::terminate() {
    libraryTerminate(this);
    inside = true;
    while (held) {
        std::this_thread::sleep_for(kPollPeriod);
    }
}

HeldTermination::HeldTermination() {
    inside = false;
    held = true;
}

HeldTermination::~HeldTermination() {
    Release();
}

bool HeldTermination::WaitUntilInside() const {
    return support::WaitFor([] { return inside.load(); });
}

void HeldTermination::Release() {
    held = false;
}
