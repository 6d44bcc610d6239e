#pragma once

#include <chrono>
#include <exception>
#include <memory>
#include <stop_token>
#include <string>
#include <xmlrpc-c/client_transport.hpp>

#include "client/Failure.h"
#include "common/Ports.h"

struct curl_slist;

namespace tavrik {

/// Where a daemon serves.
struct Endpoint {
    std::string host = "127.0.0.1";
    unsigned port = kPorts[0];
    std::chrono::milliseconds timeout = std::chrono::seconds(10);  ///< of one call

    /// "HOST:PORT", an IPv6 address in brackets.
    std::string Address() const {
        const bool isBare = host.find(':') != std::string::npos && !host.starts_with('[');
        return (isBare ? "[" + host + "]" : host) + ":" + std::to_string(port);
    }
};

/// Carries the XML of an XML-RPC client to one server, over one connection that is kept. Those that
/// come with the XML-RPC library are no choice: they round time-outs up to multiples of 3 s and
/// take the proxy of the environment.
class HttpTransport : public xmlrpc_c::clientXmlTransport {
public:
    /// @param endpoint its time-out is for connecting, sending and the answer together
    /// @param stop ends a running call within about a second, with a Failure (NoDaemon)
    HttpTransport(const Endpoint& endpoint, std::stop_token stop);

    /// Posts `callXml`. The carriage parameter says nothing: there is one server.
    /// @param responseXml the body of the answer
    /// @throws Failure (NoDaemon, BadAnswer)
    void call(xmlrpc_c::carriageParm* carriageParm, const std::string& callXml,
              std::string* responseXml) override;

    /// Throws again what the last call threw, if it did: the library's client makes an exception of
    /// its own of it.
    void RethrowFailure() const;

    HttpTransport(const HttpTransport&) = delete;
    HttpTransport& operator=(const HttpTransport&) = delete;

private:
    struct Deleter {
        void operator()(void* handle) const;
        void operator()(curl_slist* list) const;
    };

    void Post(const std::string& body, std::string& answer);
    Failure Trouble(int result) const;
    std::string Reason() const;  // why no connection could be made

    const Endpoint server;
    std::stop_token stopToken;  // libcurl has its address
    std::unique_ptr<curl_slist, Deleter> headers;
    std::unique_ptr<void, Deleter> handle;  // libcurl's; uses the headers
    std::exception_ptr failure;
};

}  // namespace tavrik
