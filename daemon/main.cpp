#include <fcntl.h>
#include <pthread.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "Revision.h"
#include "common/LogLine.h"
#include "common/Ports.h"
#include "common/StandardDescriptors.h"
#include "common/Version.h"
#include "daemon/AbyssServer.h"
#include "daemon/Process.h"
#include "pellix/GripperManager.h"

namespace {

void LogBanner() {
    LogLine() << "Starting TavrikDaemon (2-port)";
    LogLine() << "Daemon version: " << TAVRIK_VERSION;
    LogLine() << "Daemon revision: " << TAVRIK_REVISION;
    LogLine() << "Daemon build date: " << __DATE__ << " at " << __TIME__;
}

/// Leaves SIGINT ignored if the daemon was started that way.
void InstallHandler() {
    if (std::signal(SIGINT, SIG_IGN) != SIG_IGN) {
        std::signal(SIGINT, TavrikDaemon::handler);
    }
}

bool StartServer(pthread_t& thread, AbyssServer& server) {
    return pthread_create(&thread, nullptr, TavrikDaemon::runServer, &server) == 0;
}

}  // namespace

int main() {
    KeepStandardDescriptors(O_RDWR);
    std::signal(SIGPIPE, SIG_IGN);                  // clients and log readers may disconnect
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // the HTTP library's lines are not split
    LogBanner();
    TavrikDaemon::gripperManager = new GripperManager;
    InstallHandler();
    std::atexit(TavrikDaemon::shutdown);

    AbyssServer abyssServer0(TavrikDaemon::gripperManager, kPorts[0]);
    AbyssServer abyssServer1(TavrikDaemon::gripperManager, kPorts[1]);
    pthread_t thread0{};
    pthread_t thread1{};
    if (!StartServer(thread0, abyssServer0)) {
        std::fputs("Couldn't create abyss server 0 pthread\n", stderr);
        return EXIT_FAILURE;
    }
    if (!StartServer(thread1, abyssServer1)) {
        abyssServer0.waitUntilRunning();  // an earlier terminate() would have no effect
        abyssServer0.terminate();
        pthread_join(thread0, nullptr);
        std::fputs("Couldn't create abyss server 1 pthread\n", stderr);
        return EXIT_FAILURE;
    }
    abyssServer0.waitUntilRunning();  // "TavrikDaemon started" means that SIGINT stops it
    abyssServer1.waitUntilRunning();
    TavrikDaemon::server0 = &abyssServer0;
    TavrikDaemon::server1 = &abyssServer1;
    LogLine() << "TavrikDaemon started";
    pthread_join(thread0, nullptr);
    pthread_join(thread1, nullptr);
    LogLine() << "TavrikDaemon stopped";
    TavrikDaemon::retireServers();
    return TavrikDaemon::exitStatus;
}
