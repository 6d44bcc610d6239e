#pragma once

#include <csignal>
#include <string>
#include <vector>

#include "simulator/ChildProcess.h"
#include "simulator/Testbed.h"

namespace simulator {

/// COMMAND and the devices that it sees.
class World {
public:
    /// @throws std::exception when COMMAND would see others
    World();

    Testbed& Devices() { return testbed; }

    void Start(const std::vector<std::string>& command);

    /// Interrupts COMMAND. Any thread. @return false when it does not run.
    bool Interrupt();

    /// Passes signals on to COMMAND until that has ended.
    /// @param signals what BlockSignals() gave
    /// @return its exit status
    int AwaitEnd(const sigset_t& signals);

private:
    ChildProcess child;
    Testbed testbed;
    std::string preloadList;
};

}  // namespace simulator
