#include "web/DriveOffs.h"

#include <cstddef>
#include <utility>

namespace tavrik {

namespace {
constexpr std::size_t kAtOnce = 4;  // connections to the daemon, which has 15 places
}

DriveOffs::DriveOffs(const Endpoint& endpoint, Run run)
    : run(std::move(run)), worker(endpoint, kAtOnce) {}

bool DriveOffs::Enqueue(const PageCommand& command, Report report) {
    const std::lock_guard lock(mutex);
    auto& all = waiting[command.Device()];
    all.push_back(std::move(report));
    if (all.size() > 1) {
        return true;  // the job of the first one waits
    }
    const bool isTaken = worker.Enqueue(
        [this, command](Daemon& daemon, const std::stop_token& /*dropped*/) {
            const auto reports = TakeReports(command.Device());
            const CommandResult result = run(command, daemon);
            for (const Report& each : reports) {
                each(result);
            }
        },
        command.Device());
    if (!isTaken) {
        waiting.erase(command.Device());
    }
    return isTaken;
}

/// Those that come from now on wait for the next call.
std::vector<DriveOffs::Report> DriveOffs::TakeReports(const std::string& device) {
    const std::lock_guard lock(mutex);
    auto node = waiting.extract(device);
    return node ? std::move(node.mapped()) : std::vector<Report>();
}

}  // namespace tavrik
