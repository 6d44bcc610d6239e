#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "bench/HttpAnswer.h"
#include "simulator/FileDescriptor.h"

namespace bench {

/// A connection to a server on this machine that makes the same call again and again.
class LoadConnection {
public:
    /// @param httpRequest header and body
    /// @throws std::system_error when there is no server on the port
    LoadConnection(unsigned port, const std::string& httpRequest);

    /// Makes the call and waits for its answer, 10 s at most.
    /// @return the answer's body, valid until the next call
    /// @throws BadAnswer, std::system_error: the connection is of no more use then
    std::string_view Call();

    /// Has the kernel note when the last byte of an answer arrives. On this machine that is when
    /// the server's send() hands it over, however late this client wakes up to read it.
    void NoteArrivals();

    /// Of the last answer; after NoteArrivals().
    std::chrono::system_clock::time_point Arrival() const { return arrival; }

private:
    void Send();
    std::size_t Receive(std::span<char> room);

    simulator::FileDescriptor socket;
    std::string request;
    HttpAnswer answer;
    std::chrono::system_clock::time_point arrival;
};

}  // namespace bench
