#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "tavrikctl/Printer.h"

struct screen;

namespace tavrik {

/// The whole terminal, as long as this object lives; one at a time. The destructor restores the
/// terminal, and ends the program if a signal for that has arrived.
class Terminal {
public:
    /// @throws Failure (Failed) if the type of the terminal is unknown
    explicit Terminal(bool colours);

    std::size_t Width() const;
    std::size_t Height() const;

    void Show(const std::vector<Cell>& lines) const;

    /// Waits up to `patience` for a key. Ctrl-Z suspends the program.
    /// @return whether to quit: q, Escape or Ctrl-C was pressed, the terminal has gone, or a
    /// signal asks for it
    bool IsLeaving(std::chrono::milliseconds patience);

private:
    struct Restorer {
        void operator()(screen* terminal) const;
    };
    std::unique_ptr<screen, Restorer> terminal;  // owned by ncurses
    bool colours;
};

}  // namespace tavrik
