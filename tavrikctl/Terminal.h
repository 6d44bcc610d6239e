#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "tavrikctl/Printer.h"

struct screen;

namespace tavrik {

/// Controls the whole terminal while it exists; only one may exist. The destructor restores the
/// terminal, and ends the program if a signal to end it has arrived.
class Terminal {
public:
    /// @throws Failure (Failed) if the type of the terminal is unknown
    explicit Terminal(bool colours);

    std::size_t Width() const;
    std::size_t Height() const;

    void Show(const std::vector<StyledText>& lines) const;

    /// Waits up to `patience` for a key. Ctrl-Z suspends the program.
    /// @return whether to quit: q, Escape or Ctrl-C was pressed, the terminal is gone, or a signal
    /// to end the program has arrived
    bool WaitForQuit(std::chrono::milliseconds patience);

private:
    struct Restorer {
        void operator()(screen* terminal) const;
    };
    std::unique_ptr<screen, Restorer> terminal;  // owned by ncurses
    bool colours;
};

}  // namespace tavrik
