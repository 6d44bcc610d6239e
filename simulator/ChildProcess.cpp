#include "simulator/ChildProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <system_error>

namespace simulator {

namespace {

constexpr int kCannotRun = 127;

/// The environment of this process with additions, for exec.
std::vector<std::string> BuildEnvironment(const ChildProcess::Environment& additions) {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (!additions.contains(text.substr(0, text.find('=')))) {
            entries.push_back(text);
        }
    }
    for (const auto& [name, value] : additions) {
        entries.push_back(name);
        entries.back().append("=").append(value);
    }
    return entries;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// Runs between fork and exec: must not allocate or lock.
[[noreturn]] void Execute(const std::vector<char*>& arguments,
                          const std::vector<char*>& environment, pid_t parent,
                          std::string_view message) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(kCannotRun);
    }
    struct sigaction defaultAction = {};
    defaultAction.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number) {
        sigaction(number, &defaultAction, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    const int null = open("/dev/null", O_RDONLY);
    dup2(null, STDIN_FILENO);
    close(null);
    execvpe(arguments.front(), arguments.data(), environment.data());
    const std::string_view reason = strerrordesc_np(errno);
    for (const std::string_view part : {message, reason, std::string_view("\n")}) {
        [[maybe_unused]] const auto written = write(STDERR_FILENO, part.data(), part.size());
    }
    _exit(kCannotRun);
}

}  // namespace

pid_t ChildProcess::Start(const std::vector<std::string>& command, const Environment& additions) {
    std::vector<std::string> arguments = command;
    std::vector<std::string> environment = BuildEnvironment(additions);
    const std::vector<char*> argumentPointers = Pointers(arguments);
    const std::vector<char*> environmentPointers = Pointers(environment);
    const std::string message = std::string(program_invocation_short_name) +
                                ": error: cannot run " + command.front() + ": ";
    const pid_t parent = getpid();

    const std::lock_guard lock(mutex);
    const pid_t child = fork();
    if (child == 0) {
        Execute(argumentPointers, environmentPointers, parent, message);
    }
    if (child == -1) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    pid = child;
    return child;
}

bool ChildProcess::Signal(int number) {
    const std::lock_guard lock(mutex);
    return pid != 0 && kill(pid, number) == 0;
}

std::optional<int> ChildProcess::Collect() {
    const std::lock_guard lock(mutex);
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) != pid) {
        return std::nullopt;
    }
    pid = 0;
    constexpr int kSignalBase = 128;
    return WIFSIGNALED(status) ? kSignalBase + WTERMSIG(status) : WEXITSTATUS(status);
}

sigset_t BlockSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        // A signal that was ignored at the start would never arrive.
        std::signal(number, SIG_DFL);
        sigaddset(&set, number);
    }
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    for (const int number : {SIGPIPE, SIGTTIN, SIGXFSZ}) {
        std::signal(number, SIG_IGN);
    }
    return set;
}

}  // namespace simulator
