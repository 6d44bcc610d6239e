#pragma once

#include <memory>
#include <stop_token>
#include <string>

#include "tools/Endpoint.h"
#include "tools/Failure.h"

struct curl_slist;

namespace tavrikctl {

/// Posts XML to one server, over one connection that is kept. The XML-RPC library's own transport
/// is no choice: it rounds time-outs up to multiples of 3 s and takes the proxy of the environment.
class HttpClient {
public:
    /// @param endpoint its time-out is for connecting, sending and the answer together
    /// @param stop ends a running call within about a second, with a Failure (NoDaemon)
    HttpClient(const Endpoint& endpoint, const std::string& path, std::stop_token stop);

    /// @return the body of the answer
    /// @throws Failure (NoDaemon, BadAnswer)
    std::string Post(const std::string& body);

    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

private:
    struct Deleter {
        void operator()(void* handle) const;
        void operator()(curl_slist* list) const;
    };

    Failure Trouble(int result) const;
    std::string Reason() const;  // why no connection could be made

    const Endpoint server;
    std::stop_token stopToken;  // libcurl has its address
    std::unique_ptr<curl_slist, Deleter> headers;
    std::unique_ptr<void, Deleter> handle;  // libcurl's; uses the headers
};

}  // namespace tavrikctl
