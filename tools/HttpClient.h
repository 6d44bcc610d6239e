#pragma once

#include <chrono>
#include <memory>
#include <string>

struct curl_slist;

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
    struct Deleter {
        void operator()(void* handle) const;
        void operator()(curl_slist* list) const;
    };

    std::string address;
    std::chrono::milliseconds timeLimit;
    std::unique_ptr<curl_slist, Deleter> headers;
    std::unique_ptr<void, Deleter> handle;  // libcurl's; uses the headers
};

}  // namespace tavrikctl
