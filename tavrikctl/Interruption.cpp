#include "tavrikctl/Interruption.h"

#include <pthread.h>

#include <array>
#include <atomic>

namespace tavrik {

namespace {

constexpr std::array kInterrupting{SIGINT, SIGTERM, SIGHUP};
constexpr int kWakeUp = SIGUSR1;  // for the thread that waits for signals

std::atomic<int> lastSignal{SIGINT};  // that has interrupted the program

bool IsIgnored(int number) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

/// Ends the program by a signal.
void EndBy(int number) {
    std::signal(number, SIG_DFL);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, number);
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    std::raise(number);
}

}  // namespace

Interruption::Interruption() {
    sigemptyset(&signals);
    sigaddset(&signals, kWakeUp);
    for (const int number : kInterrupting) {
        if (!IsIgnored(number)) {
            sigaddset(&signals, number);
        }
    }
    pthread_sigmask(SIG_BLOCK, &signals, &previous);
    waiter = std::thread(&Interruption::AwaitSignals, this);
}

Interruption::~Interruption() {
    pthread_kill(waiter.native_handle(), kWakeUp);
    waiter.join();
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

bool Interruption::IsTermination() const {
    return stop.stop_requested() && lastSignal != SIGINT;
}

void Interruption::AwaitSignals() {
    int number = 0;
    while (sigwait(&signals, &number) == 0 && number != kWakeUp) {
        lastSignal = number;
        if (!stop.request_stop()) {  // the second one
            EndBy(number);
        }
    }
}

void EndInterrupted() {
    EndBy(lastSignal);
}

}  // namespace tavrik
