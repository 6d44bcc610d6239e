#include "daemon/AbyssServer.h"

#include <array>
#include <chrono>
#include <limits>
#include <string>
#include <thread>

#include "common/LogLine.h"
#include "daemon/methods/LEDMethods.h"
#include "daemon/methods/MotionMethods.h"
#include "daemon/methods/ParameterMethods.h"
#include "daemon/methods/ServiceMethods.h"
#include "daemon/methods/StateMethods.h"

namespace {

constexpr std::chrono::milliseconds kTerminatorPoll{1};
constexpr std::chrono::milliseconds kRestartPause{100};

/// A client may keep one connection for any number of calls.
constexpr unsigned kUnlimitedCalls = std::numeric_limits<std::uint32_t>::max();

struct GripperMethodEntry {
    const char* name;
    xmlrpc_c::method* (*create)(GripperManager*);
};

template <typename Method>
xmlrpc_c::method* Create(GripperManager* manager) {
    return new Method(manager);
}

/// In the order of registration. Three classes are also registered under a second, older name.
constexpr auto kMethods = std::to_array<GripperMethodEntry>({
    {"Grip", Create<Grip>},
    {"Release", Create<Release>},
    {"Disable", Create<Disable>},
    {"Home", Create<Reference>},
    {"Reference", Create<Reference>},
    {"Holdfast", Create<Holdfast>},
    {"UpdatePDIN", Create<UpdatePDIN>},
    {"GetPDINExcerpt", Create<GetPDINExcerpt>},
    {"GetState", Create<GetState>},
    {"GetTempWarn", Create<GetTempWarn>},
    {"GetTempFault", Create<GetTempFault>},
    {"GetFault", Create<GetFault>},
    {"GetMaintenance", Create<GetMaintenance>},
    {"GetPos", Create<GetPos>},
    {"GetGrippers", Create<GetGrippers>},
    {"GetGripperInterface", Create<GetGripperInterface>},
    {"GetParameterChecksum", Create<GetParameterChecksum>},
    {"StoreRemanent", Create<StoreRemanent>},
    {"GetReleaseLimit", Create<GetReleaseLimit>},
    {"GetNoPartLimit", Create<GetNoPartLimit>},
    {"GetForce", Create<GetForce>},
    {"GetOverrideRelease", Create<GetOverrideRelease>},
    {"GetOverrideGrip", Create<GetOverrideGrip>},
    {"GetHomingDirection", Create<GetReferenceDirection>},
    {"GetReferenceDirection", Create<GetReferenceDirection>},
    {"SetReleaseLimit", Create<SetReleaseLimit>},
    {"SetNoPartLimit", Create<SetNoPartLimit>},
    {"SetForce", Create<SetForce>},
    {"SetOverrideRelease", Create<SetOverrideRelease>},
    {"SetOverrideGrip", Create<SetOverrideGrip>},
    {"SetHomingDirection", Create<SetReferenceDirection>},
    {"SetReferenceDirection", Create<SetReferenceDirection>},
    {"GetLEDAnimation", Create<GetLEDAnimation>},
    {"GetLEDColor", Create<GetLEDColor>},
    {"GetLEDSpeed", Create<GetLEDSpeed>},
    {"SetLEDPreset", Create<SetLEDPreset>},
    {"SetLEDAnimation", Create<SetLEDAnimation>},
    {"SetLEDColor", Create<SetLEDColor>},
    {"SetLEDSpeed", Create<SetLEDSpeed>},
});

}  // namespace

AbyssServer::AbyssServer(GripperManager* manager, unsigned port) : port(port) {
    for (const GripperMethodEntry& method : kMethods) {
        registry.addMethod(method.name, xmlrpc_c::methodPtr(method.create(manager)));
    }
    registry.addMethod("GetVersion", xmlrpc_c::methodPtr(new GetVersion));
}

AbyssServer::~AbyssServer() {
    if (xmlrpc_c::serverAbyss* const running = server) {
        running->terminate();
    }
}

void AbyssServer::run() {
    xmlrpc_c::serverAbyss::constrOpt options;  // named: the library's copy constructor crashes
    options.portNumber(port);
    options.registryP(&registry);
    options.keepaliveMaxConn(kUnlimitedCalls);
    options.serverOwnsSignals(false);  // otherwise the library would handle SIGINT
    xmlrpc_c::serverAbyss abyss(options);
    server = &abyss;
    hasServer = true;
    hasServer.notify_all();
    abyss.run();
    while (server != nullptr) {  // not terminated, so the library gave up
        LogLine() << "Server on port " << port << " failed, serving again";
        std::this_thread::sleep_for(kRestartPause);
        abyss.run();
    }
    // No thread may be using `abyss` when it is destroyed.
    while (terminators != 0) {
        std::this_thread::sleep_for(kTerminatorPoll);
    }
}

void AbyssServer::terminate() {
    ++terminators;
    if (xmlrpc_c::serverAbyss* const running = server.exchange(nullptr)) {
        running->terminate();
    }
    --terminators;
}
