#include "web/Poller.h"

#include <algorithm>
#include <exception>
#include <map>
#include <span>
#include <utility>
#include <xmlrpc-c/base.hpp>

#include "client/Failure.h"

namespace tavrik {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kViewPeriod(100);
constexpr milliseconds kMetricsPeriod(500);
constexpr milliseconds kRetryPeriod(500);   // while the daemon cannot be reached
constexpr milliseconds kShortestPause(50);  // between two readings, however often it is woken
constexpr std::chrono::seconds kListPeriod(1);
constexpr std::chrono::seconds kWithoutDataPeriod(1);  // GetPDINExcerpt logs a line each time then
constexpr std::chrono::seconds kMasterPeriod(1);       // between polls of a master
constexpr std::chrono::seconds kMetricsMasterPeriod(60);
constexpr std::chrono::seconds kMetricsFor(60);  // after the last collection
constexpr std::chrono::seconds kFresh(1);
constexpr milliseconds kMetricsPatience(15);
constexpr milliseconds kCallTimeout(1500);  // a daemon that hangs is shown within two seconds
constexpr std::size_t kLargestBatch = 64;   // calls; keeps a request far below the daemon's limit

Endpoint WithTimeout(Endpoint endpoint) {
    endpoint.timeout = kCallTimeout;
    return endpoint;
}

xmlrpc_c::value OneCall(const std::string& method, const std::string& device) {
    const xmlrpc_c::carray parameters{xmlrpc_c::value_string(device)};
    return xmlrpc_c::value_struct(
        std::map<std::string, xmlrpc_c::value>{{"methodName", xmlrpc_c::value_string(method)},
                                               {"params", xmlrpc_c::value_array(parameters)}});
}

/// Calls `method` for each device in as few requests as possible.
std::vector<xmlrpc_c::value> CallForAll(Daemon& daemon, const std::string& method,
                                        std::span<const std::string> devices) {
    constexpr const char* kMulticall = "system.multicall";
    std::vector<xmlrpc_c::value> answers;
    while (!devices.empty()) {
        const auto batch = devices.first(std::min(devices.size(), kLargestBatch));
        devices = devices.subspan(batch.size());
        xmlrpc_c::carray calls;
        for (const std::string& device : batch) {
            calls.push_back(OneCall(method, device));
        }
        xmlrpc_c::paramList parameters;
        parameters.addc(calls);
        const auto replies =
            Daemon::As<xmlrpc_c::carray>(kMulticall, daemon.Call(kMulticall, parameters));
        if (replies.size() != batch.size()) {
            throw Failure(ExitStatus::BadAnswer, "the reply to system.multicall is incomplete");
        }
        for (const auto& reply : replies) {
            answers.push_back(Daemon::As<xmlrpc_c::carray>(method, reply).at(0));
        }
    }
    return answers;
}

}  // namespace

Poller::Poller(const Endpoint& endpoint, std::function<std::size_t()> countViewers,
               Listener listener)
    : daemon(WithTimeout(endpoint), stop.get_token()),
      masters(endpoint),
      countViewers(std::move(countViewers)),
      listener(std::move(listener)),
      thread(&Poller::Run, this) {}

Poller::~Poller() {
    stop.request_stop();
    thread.join();
}

void Poller::Wake() {
    const std::lock_guard lock(mutex);
    isWoken = true;
    changed.notify_all();
}

Cell Poller::ReadForMetrics() {
    std::unique_lock lock(mutex);
    const auto now = Clock::now();
    metricsUntil = now + kMetricsFor;
    const auto isFresh = [this, now] { return latestAt + kFresh > now; };
    if (!isFresh()) {
        isWoken = true;
        changed.notify_all();
        changed.wait_for(lock, kMetricsPatience, isFresh);
    }
    return latest;
}

Cell Poller::Latest() const {
    const std::lock_guard lock(mutex);
    return latest;
}

/// Zero without viewers and collectors.
milliseconds Poller::Period() const {
    const milliseconds period = countViewers() > 0            ? kViewPeriod
                                : Clock::now() < metricsUntil ? kMetricsPeriod
                                                              : milliseconds(0);
    return cell.reachable || period == milliseconds(0) ? period : std::max(period, kRetryPeriod);
}

/// Waits until the next reading is due. The last one began at `last`.
/// @return false when the thread must end
bool Poller::AwaitWork(Clock::time_point last) {
    std::unique_lock lock(mutex);
    changed.wait_until(lock, stop.get_token(), last + kShortestPause, [] { return false; });
    changed.wait(lock, stop.get_token(), [this] { return isWoken || Period() > milliseconds(0); });
    changed.wait_until(lock, stop.get_token(), last + Period(), [this] { return isWoken; });
    isWoken = false;
    return !stop.stop_requested();
}

void Poller::Run() {
    auto last = Clock::now() - kShortestPause;
    while (AwaitWork(last)) {
        last = Clock::now();
        Read();
    }
}

void Poller::Read() {
    bool isNew = false;
    try {
        if (!cell.reachable || Clock::now() >= nextList) {
            isNew = ReadList();
        }
        if (ReadValues()) {
            isNew = ReadList() || isNew;
        }
    } catch (const std::exception& failure) {  // also what the XML-RPC library throws
        isNew = cell.reachable || cell.error != failure.what();
        cell.MarkUnreachable(failure.what());
    }
    Publish(isNew);
}

/// @return whether anything has changed
bool Poller::ReadList() {
    bool isNew = false;
    if (!cell.reachable) {
        cell.version = daemon.Get<std::string>("GetVersion");
        isNew = true;
    }
    isNew = cell.UpdateList(daemon.Grippers()) || isNew;
    cell.reachable = true;
    cell.error.clear();
    nextList = Clock::now() + kListPeriod;
    return isNew;
}

/// @return whether a gripper has lost its process data: it may have been unplugged
bool Poller::ReadValues() {
    const auto now = Clock::now();
    const bool isFull = now >= nextWithoutData;
    nextWithoutData = isFull ? now + kWithoutDataPeriod : nextWithoutData;
    std::vector<std::string> withData;
    std::vector<std::string> withoutData;
    for (const CellGripper& gripper : cell.grippers) {
        if (gripper.IsListed()) {
            const bool isFullyRead = isFull || !gripper.data || gripper.data->certain;
            (isFullyRead ? withData : withoutData).push_back(gripper.device);
        }
    }
    bool isLost = false;
    const auto excerpts = CallForAll(daemon, "GetPDINExcerpt", withData);
    for (std::size_t i = 0; i < withData.size(); ++i) {
        CellGripper& gripper = *cell.Find(withData[i]);
        const ProcessData data(Daemon::As<int>("GetPDINExcerpt", excerpts[i]));
        isLost = isLost || (!data.certain && gripper.data && gripper.data->certain);
        Update(gripper, data, now);
    }
    const auto states = CallForAll(daemon, "GetState", withoutData);
    for (std::size_t i = 0; i < withoutData.size(); ++i) {
        CellGripper& gripper = *cell.Find(withoutData[i]);
        Update(gripper, *gripper.data, now);
        if (Daemon::As<int>("GetState", states[i]) != 0) {
            nextWithoutData = now;
        }
    }
    return isLost;
}

void Poller::Update(CellGripper& gripper, const ProcessData& data, Clock::time_point now) {
    gripper.Update(data, now);
    gripper.silentSince = masters.Check(gripper.device, data, now,
                                        countViewers() > 0 ? kMasterPeriod : kMetricsMasterPeriod);
}

void Poller::Publish(bool isNew) {
    {
        const std::lock_guard lock(mutex);
        latest = cell;
        latestAt = Clock::now();
        changed.notify_all();
    }
    listener(cell, isNew);
}

}  // namespace tavrik
