#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Pty.h"

namespace support {

/// A master with a gripper behind a tty: records the request lines and answers them.
///
/// At first it is a PELLIX in mode 4 with an HVA, serial number 100001, on it. A query that it
/// has no answer for is an error 9; any other request succeeds.
class FakeMaster {
public:
    FakeMaster();
    FakeMaster(const FakeMaster&) = delete;
    FakeMaster& operator=(const FakeMaster&) = delete;
    ~FakeMaster();

    const Pty& Tty() const { return pty; }
    const std::string& Path() const { return pty.Path(); }

    /// The query of `key` is answered with an acknowledgement and this value. There is no finish
    /// line, which could meet the next query of that key.
    void SetValue(const std::string& key, const std::string& value);

    /// The request line `line` is answered with these texts in turn; the last one stays. An empty
    /// text is silence.
    void SetAnswers(const std::string& line, std::deque<std::string> texts);

    /// No request is answered, or they are again.
    void SetSilent(bool on) { silent = on; }

    /// Sends an event line again and again, so that a reader of the tty never waits long.
    void StreamEvery(std::chrono::milliseconds period) { streamPeriod = period; }

    /// Sends `text` of its own accord.
    void Send(const std::string& text) const { pty.Send(text); }

    /// The request lines so far, oldest first, without their line feeds.
    std::vector<std::string> Requests() const;

    /// How often `line` was requested so far.
    std::size_t Count(const std::string& line) const;

    /// Waits until `line` has been requested `count` times. @return whether it was
    bool WaitForRequest(const std::string& line, std::size_t count = 1) const;

    /// Forgets the requests so far.
    void ClearRequests();

    /// Takes the tty away and hangs it up.
    void Unplug();

    void Stall(bool on) const { pty.Stall(on); }

private:
    void Run();
    void Take(const std::string& text);
    void HandleRequest(const std::string& line);
    std::string AnswerTo(const std::string& line);

    Pty pty;
    std::map<std::string, std::deque<std::string>> answers;
    std::vector<std::string> requests;
    std::string unfinished;    // of the request line; the thread's own
    mutable std::mutex mutex;  // guards answers and requests
    std::atomic<bool> silent = false;
    std::atomic<std::chrono::milliseconds> streamPeriod = std::chrono::milliseconds(0);
    std::atomic<bool> running = true;  // looked at every few milliseconds
    std::thread thread;
};

}  // namespace support
