#include "tests/unit/daemon/fence/EchoCall.h"

#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/registry.hpp>

namespace {

/// Returns its parameter.
class Echo : public xmlrpc_c::method {
public:
    void execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) override {
        *result = xmlrpc_c::value_string(params.getString(0));
    }
};

}  // namespace

std::string Answer(const std::string& value, const std::string& prologue) {
    xmlrpc_c::registry registry;
    registry.addMethod("Echo", xmlrpc_c::methodPtr(new Echo));
    std::string response;
    registry.processCall(prologue +
                             "<methodCall><methodName>Echo</methodName><params><param><value>" +
                             value + "</value></param></params></methodCall>",
                         &response);
    return response;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}
