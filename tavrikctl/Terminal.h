#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "tavrikctl/Printer.h"

struct screen;

namespace tavrik {

/// The whole terminal, for as long as this object lives; one at a time. Afterwards the terminal is
/// as it was, and the program ends if a signal that ends it has come meanwhile.
class Terminal {
public:
    /// @throws Failure (Failed) when the terminal is of no known type
    explicit Terminal(bool withColours);

    std::size_t Width() const;
    std::size_t Height() const;

    void Show(const std::vector<Cell>& lines) const;

    /// Waits for a key until `patience` has passed. Ctrl-Z suspends the program.
    /// @return whether the user wants to leave: q, Escape or Ctrl-C, the terminal has gone, or
    /// a signal wants the program to end
    bool IsLeaving(std::chrono::milliseconds patience);

private:
    struct Restorer {
        void operator()(screen* terminal) const;
    };
    std::unique_ptr<screen, Restorer> terminal;  // of ncurses
    bool colours;
};

}  // namespace tavrik
