#pragma once

#include <csignal>
#include <stop_token>
#include <thread>

namespace tavrik {

/// While it exists, SIGINT (Ctrl-C), SIGTERM and SIGHUP request a stop instead of ending the
/// program; a second one ends it. Signals that were ignored before stay ignored. Create it before
/// any other thread.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    std::stop_token Token() const { return stop.get_token(); }

    /// Whether a signal other than that of Ctrl-C requested the stop.
    bool IsTermination() const;

private:
    void AwaitSignals();

    sigset_t signals{};
    sigset_t previous{};  // the signals that were blocked before
    std::stop_source stop;
    std::thread waiter;
};

/// Ends the program by the signal that interrupted it: the shell reports 128 plus its number, and
/// Ctrl-C also ends a script.
void EndInterrupted();

}  // namespace tavrik
