#include "simulator/SignalSet.h"

#include <initializer_list>

namespace simulator {

sigset_t BlockSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        // A signal that was ignored when we started would never arrive.
        std::signal(number, SIG_DFL);
        sigaddset(&set, number);
    }
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    for (const int number : {SIGPIPE, SIGTTIN, SIGXFSZ}) {
        std::signal(number, SIG_IGN);
    }
    return set;
}

}  // namespace simulator
