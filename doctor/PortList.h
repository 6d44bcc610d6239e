#pragma once

#include <string>

namespace tavrik {

/// Ports as the kernel lists them: "44221-44222,50000".
class PortList {
public:
    explicit PortList(std::string listed) : text(std::move(listed)) {}

    bool Contains(unsigned port) const;

private:
    std::string text;
};

}  // namespace tavrik
