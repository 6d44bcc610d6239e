#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "simulator/AnswerQueue.h"

namespace simulator {

/// What speaks behind a tty. It knows no tty: bytes come in through Receive(), and leave through
/// NextText().
///
/// Not thread-safe; one thread works with it.
class Master {
public:
    Master() = default;
    Master(const Master&) = delete;
    Master& operator=(const Master&) = delete;
    virtual ~Master() = default;

    virtual void PowerUp(TimePoint now) = 0;

    /// Its tty is gone.
    /// @param reported whether udev reports that too; may come on its own after a hang-up without
    virtual void HangUp(bool reported, TimePoint now) = 0;

    virtual void Receive(std::string_view bytes, TimePoint now) = 0;

    /// Lets time pass up to `now`.
    /// @return the text of the next write, empty when there is nothing to send yet.
    virtual std::string NextText(TimePoint now) = 0;

    /// When NextText() has something to do again; nothing when only a request can bring that about.
    virtual std::optional<TimePoint> NextDue() const = 0;
};

}  // namespace simulator
