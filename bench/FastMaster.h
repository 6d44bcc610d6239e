#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "bench/FastAnswers.h"
#include "bench/LineBuffer.h"
#include "bench/SharedTime.h"
#include "simulator/Pty.h"

namespace bench {

/// A plugged-in master that answers at once and streams one and the same line of process data,
/// position 25.0. It allocates nothing while it serves. Not thread-safe.
///
/// Its end hangs the tty up.
class FastMaster {
public:
    static constexpr std::size_t kLinesPerWrite = 240;  // the most that are within 4096 bytes

    /// @param masterNumber 0 to 99, for the serial number
    /// @param lineCounter counts up with every line of process data; outlives the master
    /// @param ownFinTime gets the time just before the FIN of each PDOUT is written; outlives the
    ///     master; null for none
    /// @throws std::system_error when there is no pty to be had
    FastMaster(unsigned masterNumber, std::uint64_t& lineCounter, SharedTime* ownFinTime = nullptr);
    FastMaster(const FastMaster&) = delete;
    FastMaster& operator=(const FastMaster&) = delete;

    /// Node of the tty ("/dev/pts/3").
    const std::string& NodePath() const { return port.NodePath(); }

    /// For epoll: readable when there are requests, writable when there is room.
    int Descriptor() const { return port.Descriptor(); }

    /// Answers the requests that are there, all of one read with one write.
    void Receive();

    /// Sends `count` lines of process data with one write; at most kLinesPerWrite. What the tty
    /// has no room for is lost, but the next write ends a line that was cut.
    void Stream(std::size_t count);

    /// True when answers wait for room in the tty.
    bool WaitsForRoom() const { return !answers.empty(); }

    /// Sends the answers that wait.
    void Flush();

private:
    std::size_t Write(const char* text, std::size_t length);

    const FastAnswers knownAnswers;
    std::uint64_t& lineCount;
    SharedTime* finTime;
    simulator::PtyPort port;
    LineBuffer requests;
    std::string answers;    // what is not sent yet
    std::size_t begun = 0;  // bytes that are sent of the current line of process data
};

}  // namespace bench
