#pragma once

#include <string>

namespace pellix {

/// Text transport to one PELLIX master, independent of the protocol.
///
/// Threads: Read() and Reopen() belong to the parser thread; any thread may call Write().
class Connection {
public:
    virtual ~Connection() = default;

    /// @return input received since the last call; blocks up to 1 s and may be empty
    virtual std::string Read() = 0;

    /// Sends `text`.
    /// @return 0 if every byte was written, otherwise -1
    virtual int Write(const std::string& text) = 0;

    /// Closes the line and opens it again.
    /// @throws std::exception* if it cannot be opened; the catcher deletes it
    virtual void Reopen() = 0;
};

}  // namespace pellix
