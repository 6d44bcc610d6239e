#include "client/Endpoint.h"

#include "client/Printable.h"

namespace tavrik {

std::string Endpoint::Address() const {
    const bool isBare = host.find(':') != std::string::npos && !host.starts_with('[');
    return (isBare ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::string Endpoint::Options() const {
    const Endpoint usual;
    return (host == usual.host ? "" : " --host " + ShellWord(Printable(host))) +
           (port == usual.port ? "" : " --port " + std::to_string(port));
}

}  // namespace tavrik
