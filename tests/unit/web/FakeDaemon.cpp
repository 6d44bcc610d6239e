#include "tests/unit/web/FakeDaemon.h"

#include <utility>
#include <xmlrpc-c/client.hpp>
#include <xmlrpc-c/xml.hpp>

namespace tavrik {

void FakeDaemon::On(const std::string& name, Method method) {
    const std::lock_guard lock(mutex);
    methods[name] = std::move(method);
}

int FakeDaemon::Calls(const std::string& name) const {
    const std::lock_guard lock(mutex);
    const auto place = calls.find(name);
    return place == calls.end() ? 0 : place->second;
}

Endpoint FakeDaemon::Server() const {
    Endpoint endpoint;
    endpoint.port = server.Port();
    return endpoint;
}

std::optional<HttpResponse> FakeDaemon::Refuse(const HttpRequest& /*head*/) {
    return std::nullopt;
}

void FakeDaemon::Handle(const HttpRequest& request, Reply reply) {
    std::string name;
    xmlrpc_c::paramList parameters;
    xmlrpc_c::xml::parseCall(request.body, &name, &parameters);
    Method method;
    {
        const std::lock_guard lock(mutex);
        ++calls[name];
        method = methods[name];
    }
    const xmlrpc_c::rpcOutcome outcome =
        method ? xmlrpc_c::rpcOutcome(method(parameters))
               : xmlrpc_c::rpcOutcome(xmlrpc_c::fault("no method " + name));
    std::string answer;
    xmlrpc_c::xml::generateResponse(outcome, &answer);
    HttpResponse response;
    response.type = "text/xml";
    response.body = std::make_shared<const std::string>(std::move(answer));
    reply(std::move(response));
}

}  // namespace tavrik
