#pragma once

#include <string>

namespace pellix {

/// Text transport to one PELLIX master. Knows nothing of the protocol.
class Connection {
public:
    virtual ~Connection() = default;

    /// Input received since the last call; may block up to one second and may be empty.
    virtual std::string Read() = 0;

    /// Sends the whole `text`. @return 0 when every byte was taken, otherwise -1.
    virtual int Write(const std::string& text) = 0;

    /// Closes and opens the line again.
    /// @throws std::exception* when it cannot be opened; the catcher deletes it.
    virtual void Reopen() = 0;
};

}  // namespace pellix
