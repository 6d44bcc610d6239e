#pragma once

#include <exception>
#include <memory>
#include <stop_token>
#include <string>
#include <xmlrpc-c/client_transport.hpp>

#include "client/Endpoint.h"
#include "client/Failure.h"

struct curl_slist;

namespace tavrik {

/// Carries the XML of an XML-RPC client to one server, over one persistent connection. The
/// transports of the XML-RPC library are unsuitable: they round timeouts up to multiples of 3 s and
/// use the proxy of the environment.
class HttpTransport : public xmlrpc_c::clientXmlTransport {
public:
    /// @param endpoint its timeout covers connecting, sending and receiving
    /// @param stop ends a running call within about a second, with a Failure (NoDaemon); nothing
    /// is sent for later calls, which fail with the same status
    HttpTransport(const Endpoint& endpoint, std::stop_token stop);

    /// Posts `callXml`. The carriage parameter is unused: there is one server.
    /// @param responseXml the body of the reply
    /// @throws Failure (NoDaemon, BadAnswer)
    void call(xmlrpc_c::carriageParm* carriageParm, const std::string& callXml,
              std::string* responseXml) override;

    /// Rethrows the exception of the last call, if any: the library's client replaces it with one
    /// of its own.
    void RethrowFailure() const;

    HttpTransport(const HttpTransport&) = delete;
    HttpTransport& operator=(const HttpTransport&) = delete;

private:
    struct Deleter {
        void operator()(void* handle) const;
        void operator()(curl_slist* list) const;
    };

    void Post(const std::string& body, std::string& answer);
    Failure ToFailure(int result) const;
    std::string Reason() const;  // why no connection could be made

    const Endpoint endpoint;
    std::stop_token stop;  // libcurl has its address
    std::unique_ptr<curl_slist, Deleter> headers;
    std::unique_ptr<void, Deleter> handle;  // libcurl's; uses the headers
    std::exception_ptr failure;
};

}  // namespace tavrik
