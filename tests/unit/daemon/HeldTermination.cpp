#include "tests/unit/daemon/HeldTermination.h"

#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <xmlrpc-c/server_abyss.hpp>

#include "tests/support/WaitFor.h"

namespace {

constexpr std::chrono::milliseconds kPollPeriod{1};

using Terminate = void (*)(xmlrpc_c::serverAbyss*);
const auto libraryTerminate =
    reinterpret_cast<Terminate>(::dlsym(RTLD_NEXT, "_ZN8xmlrpc_c11serverAbyss9terminateEv"));

std::atomic<bool> held = false;
std::atomic<bool> inside = false;

}  // namespace

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
