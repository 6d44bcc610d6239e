#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <xmlrpc-c/base.hpp>

#include "client/Endpoint.h"
#include "web/HttpServer.h"

namespace tavrik {

/// Answers XML-RPC calls as a test wants, on a free port of this machine.
class FakeDaemon : public HttpHandler {
public:
    using Method = std::function<xmlrpc_c::value(const xmlrpc_c::paramList& parameters)>;

    FakeDaemon() : server({"127.0.0.1", 0}, *this) {}

    /// From now on, calls of `name` are answered by `method`, on the server's thread.
    void On(const std::string& name, Method method);

    /// How often `name` was called.
    int Calls(const std::string& name) const;

    Endpoint Server() const;

    std::optional<HttpResponse> Refuse(const HttpRequest& head) override;
    void Handle(const HttpRequest& request, Reply reply) override;

private:
    mutable std::mutex mutex;  // guards what follows
    std::map<std::string, Method> methods;
    std::map<std::string, int> calls;
    HttpServer server;  // last: uses all others
};

}  // namespace tavrik
