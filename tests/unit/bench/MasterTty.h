#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "simulator/FileDescriptor.h"

namespace bench {

/// The other side of a simulated master.
class MasterTty {
public:
    /// Opens the tty's node.
    explicit MasterTty(const std::string& path);

    int Get() const { return tty.Get(); }

    void Send(std::string_view text) const;

    /// One read; waits for something to come.
    std::string ReadSome() const { return ReadAtMost(4096); }

    /// Reads until `length` bytes are there. @return less when they do not come
    std::string Read(std::size_t length) const;

private:
    std::string ReadAtMost(std::size_t length) const;

    simulator::FileDescriptor tty;
};

/// How often `part` is in `text`.
std::size_t CountOf(std::string_view part, const std::string& text);

}  // namespace bench
