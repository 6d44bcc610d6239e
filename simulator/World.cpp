#include "simulator/World.h"

#include <filesystem>

#include "simulator/PreloadList.h"

namespace simulator {

World::World()
    : preloadList(PreloadList(testbed.Folder(),
                              std::filesystem::read_symlink("/proc/self/exe").parent_path())) {}

void World::Start(const std::vector<std::string>& command) {
    child.Start(command,
                {{"LD_PRELOAD", preloadList}, {"UMOCKDEV_DIR", testbed.Folder().string()}});
}

bool World::Interrupt() {
    return child.Signal(SIGINT);
}

int World::AwaitEnd(const sigset_t& signals) {
    while (true) {
        int number = 0;
        sigwait(&signals, &number);
        if (number != SIGCHLD) {
            child.Signal(number);
        } else if (const auto status = child.Collect()) {
            return *status;
        }
    }
}

}  // namespace simulator
