#include "tests/unit/daemon/Values.h"

#include <sstream>

namespace values {

namespace {

std::string DescribeScalar(const xmlrpc_c::value& value) {
    std::ostringstream text;
    text << std::boolalpha;
    switch (value.type()) {
        case xmlrpc_c::value::TYPE_INT:
            text << "int " << xmlrpc_c::value_int(value).cvalue();
            break;
        case xmlrpc_c::value::TYPE_I8:
            text << "i8 " << xmlrpc_c::value_i8(value).cvalue();
            break;
        case xmlrpc_c::value::TYPE_DOUBLE:
            text << "double " << xmlrpc_c::value_double(value).cvalue();
            break;
        case xmlrpc_c::value::TYPE_BOOLEAN:
            text << "boolean " << xmlrpc_c::value_boolean(value).cvalue();
            break;
        case xmlrpc_c::value::TYPE_STRING:
            text << "string " << xmlrpc_c::value_string(value).cvalue();
            break;
        default:
            text << "type " << value.type();
            break;
    }
    return text.str();
}

}  // namespace

std::string Describe(const xmlrpc_c::value& value) {
    if (value.type() != xmlrpc_c::value::TYPE_ARRAY) {
        return DescribeScalar(value);
    }
    std::string text;
    for (const xmlrpc_c::value& element : xmlrpc_c::value_array(value).cvalue()) {
        text += (text.empty() ? "" : ", ") + DescribeScalar(element);
    }
    return "array [" + text + "]";
}

std::string Execute(xmlrpc_c::method& method, const xmlrpc_c::paramList& parameters) {
    xmlrpc_c::value result;
    method.execute(parameters, &result);
    return Describe(result);
}

}  // namespace values
