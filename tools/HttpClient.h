#pragma once

#include <chrono>
#include <memory>
#include <stop_token>
#include <string>

struct curl_slist;

namespace tavrikctl {

/// Posts XML to one server, over one connection that is kept. The XML-RPC library's own transport
/// is no choice: it rounds time-outs up to multiples of 3 s and takes the proxy of the environment.
class HttpClient {
public:
    /// @param timeout for connecting, sending and the answer together
    /// @param stop ends a running call within about a second, with a Failure (NoDaemon)
    HttpClient(const std::string& url, std::chrono::milliseconds timeout, std::stop_token stop);

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

    std::string address;
    std::stop_token stopToken;  // libcurl has its address
    std::chrono::milliseconds timeLimit;
    std::unique_ptr<curl_slist, Deleter> headers;
    std::unique_ptr<void, Deleter> handle;  // libcurl's; uses the headers
};

}  // namespace tavrikctl
