#pragma once

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

private:
    void Send();

    simulator::FileDescriptor socket;
    std::string request;
    HttpAnswer answer;
};

}  // namespace bench
