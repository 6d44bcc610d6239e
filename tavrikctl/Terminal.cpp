#include "tavrikctl/Terminal.h"

// Its macros have names such as "erase" and "timeout".
#define NCURSES_NOMACROS
#include <curses.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "client/Failure.h"

namespace tavrik {

namespace {
constexpr short kAlarm = 1;  // colour pair
constexpr int kEscape = 0x1b;
constexpr int kControlC = 0x03;
constexpr int kControlZ = 0x1a;

volatile std::sig_atomic_t endingSignal = 0;

/// ncurses would exit with a failure status, and handles only two of these signals.
void EndBySignals() {
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        struct sigaction action = {};
        sigaction(number, nullptr, &action);
        if (action.sa_handler == SIG_DFL) {
            action.sa_handler = [](int caught) { endingSignal = caught; };
            sigaction(number, &action, nullptr);
        }
    }
}

bool HasHungUp() {
    std::array ends{pollfd{STDIN_FILENO, 0, 0}, pollfd{STDOUT_FILENO, 0, 0}};
    return poll(ends.data(), ends.size(), 0) > 0;
}
}  // namespace

void Terminal::Restorer::operator()(screen* terminal) const {
    endwin();
    delscreen(terminal);
    if (endingSignal != 0) {
        std::signal(endingSignal, SIG_DFL);
        std::raise(endingSignal);
    }
}

Terminal::Terminal(bool colours) : colours(colours) {
    // Regardless of the user's locale, as in the output of all commands: with LC_ALL=C, ncurses
    // would show each byte of a name in one or more columns.
    std::setlocale(LC_CTYPE, "C.UTF-8");  // NOLINT(concurrency-mt-unsafe)
    EndBySignals();
    terminal.reset(newterm(nullptr, stdout, stdin));
    if (!terminal) {
        const char* const type = std::getenv("TERM");  // NOLINT(concurrency-mt-unsafe)
        throw Failure(ExitStatus::Failed, "unknown terminal type '" +
                                              std::string(type == nullptr ? "" : type) +
                                              "': set TERM to a known one");
    }
    raw();  // Ctrl-C is read as a key, so that the terminal is always restored
    noecho();
    curs_set(0);
    set_escdelay(0);
    keypad(stdscr, TRUE);
    this->colours = colours && has_colors() && start_color() == OK && use_default_colors() == OK &&
                    init_pair(kAlarm, COLOR_RED, -1) == OK;
}

std::size_t Terminal::Width() const {
    return static_cast<std::size_t>(getmaxx(stdscr));
}

std::size_t Terminal::Height() const {
    return static_cast<std::size_t>(getmaxy(stdscr));
}

void Terminal::Show(const std::vector<StyledText>& lines) const {
    erase();
    for (std::size_t row = 0; row < lines.size(); ++row) {
        const bool isRed = colours && lines[row].alarming;
        attrset(isRed ? COLOR_PAIR(kAlarm) : 0);
        mvaddnstr(static_cast<int>(row), 0, lines[row].text.c_str(), -1);
    }
    refresh();
}

bool Terminal::WaitForQuit(std::chrono::milliseconds patience) {
    timeout(static_cast<int>(patience.count()));
    const int key = getch();
    if (key == ERR) {
        return endingSignal != 0 || HasHungUp();
    }
    if (key == kControlZ) {
        std::raise(SIGTSTP);  // ncurses catches it and gives the terminal to the shell
    }
    return key == 'q' || key == 'Q' || key == kEscape || key == kControlC;
}

}  // namespace tavrik
