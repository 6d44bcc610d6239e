#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "simulator/LineProtocol.h"

namespace simulator {

/// The device behind a tty: receives bytes through Receive() and sends through NextText().
///
/// Not thread-safe.
class Master {
public:
    Master() = default;
    Master(const Master&) = delete;
    Master& operator=(const Master&) = delete;
    virtual ~Master() = default;

    virtual void PowerUp(TimePoint now) = 0;

    /// Called after the tty has been hung up.
    /// @param reported whether udev reports the removal; may follow a call without it
    virtual void HangUp(bool reported, TimePoint now) = 0;

    virtual void Receive(std::string_view bytes, TimePoint now) = 0;

    /// Advances the time to `now`.
    /// @return the text of the next write; empty if nothing is due.
    virtual std::string NextText(TimePoint now) = 0;

    /// When to call NextText() again; nothing if only a request can make it necessary.
    virtual std::optional<TimePoint> NextDue() const = 0;
};

}  // namespace simulator
