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
/// At first it is a PELLIX in mode 4 with an HVA, serial number 100001. It answers an unknown query
/// with error 9 and any other request with success.
class FakeMaster {
public:
    FakeMaster();
    FakeMaster(const FakeMaster&) = delete;
    FakeMaster& operator=(const FakeMaster&) = delete;
    ~FakeMaster();

    const Pty& Tty() const { return pty; }
    const std::string& Path() const { return pty.Path(); }

    /// Answers the query of `key` with an acknowledgement and this value. Sends no FIN line, which
    /// could finish the next query of that key.
    void SetValue(const std::string& key, const std::string& value);

    /// Answers the request line `line` with these texts in turn, then always with the last one. An
    /// empty text sends nothing.
    void SetAnswers(const std::string& line, std::deque<std::string> texts);

    /// Stops answering requests, or answers them again.
    void SetSilent(bool on) { silent = on; }

    /// Sends an event line periodically, so that a read from the tty ends soon.
    void StreamEvery(std::chrono::milliseconds period) { streamPeriod = period; }

    /// Sends `text` without a request.
    void Send(const std::string& text) const { pty.Send(text); }

    /// @return the request lines so far, oldest first, without their line feeds
    std::vector<std::string> Requests() const;

    /// @return how often `line` was received so far
    std::size_t Count(const std::string& line) const;

    /// Waits until `line` was received `count` times.
    /// @return false if it was not in time
    bool WaitForRequest(const std::string& line, std::size_t count = 1) const;

    /// Clears the recorded requests.
    void ClearRequests();

    /// Removes the tty and hangs it up.
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
    std::string unfinished;    // beginning of a request line; used by the thread only
    mutable std::mutex mutex;  // guards answers and requests
    std::atomic<bool> silent = false;
    std::atomic<std::chrono::milliseconds> streamPeriod = std::chrono::milliseconds(0);
    std::atomic<bool> running = true;  // read every few milliseconds
    std::thread thread;
};

}  // namespace support
