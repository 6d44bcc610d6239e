#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace tavrikctl {

/// Posts XML to one server, over one connection that is kept. The XML-RPC library's own transport
/// is no choice: it rounds time-outs up to multiples of 3 s and takes the proxy of the environment.
class HttpClient {
public:
    /// @param timeout for connecting, sending and the answer together
    HttpClient(const std::string& url, std::chrono::milliseconds timeout);

    /// @return the body of the answer
    /// @throws Failure (NoDaemon, BadAnswer)
    std::string Post(const std::string& body);

private:
    struct Closer {
        void operator()(void* handle) const;
    };
    std::unique_ptr<void, Closer> handle;  // libcurl's
    std::string address;
    std::chrono::milliseconds timeLimit;
};

}  // namespace tavrikctl
