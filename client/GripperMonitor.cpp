#include "client/GripperMonitor.h"

#include <algorithm>

#include "client/Failure.h"
#include "client/Gripper.h"

namespace tavrik {

namespace {
constexpr std::chrono::milliseconds kSamplePeriod(50);
constexpr std::chrono::seconds kRetryPeriod(1);  // each call may log a line in the daemon
constexpr std::chrono::seconds kProbePause(1);
constexpr std::chrono::milliseconds kPatienceWithProbe(1500);  // a probe without answer takes 1 s
}  // namespace

void SilenceDetector::AddData(const std::optional<ProcessData>& data, TimePoint time) {
    if (lastData && data && *data != *lastData) {
        lastChange = time;
    }
    lastData = data;
}

void SilenceDetector::AddProbe(bool answered, TimePoint start) {
    probed = true;
    silentSince = answered ? std::nullopt : std::optional(silentSince.value_or(start));
}

bool SilenceDetector::IsFrozen() const {
    return lastData && silentSince && !(lastChange && *lastChange > *silentSince);
}

GripperMonitor::GripperMonitor(const Endpoint& endpoint, const std::string& device, bool passive)
    : sampleDaemon(endpoint, stop.get_token()),
      probeDaemon(endpoint, stop.get_token()),
      device(device),
      patienceWithProbe(passive ? 0 : kPatienceWithProbe.count()),
      sampler(&GripperMonitor::Sample, this) {
    if (!passive) {
        prober = std::thread(&GripperMonitor::Probe, this);
    }
}

GripperMonitor::~GripperMonitor() {
    stop.request_stop();
    sampler.join();
    if (prober.joinable()) {
        prober.join();
    }
}

std::vector<Observation> GripperMonitor::Take(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, patience, [this] { return !observations.empty(); });
    return std::exchange(observations, {});
}

void GripperMonitor::Sample() {
    const Gripper gripper(sampleDaemon, device);
    ProcessDataReader reader(gripper);
    AwaitProbe();
    auto next = Clock::now();
    do {
        Observation observation;
        observation.time = Clock::now();
        try {
            observation.data = reader.Read();
        } catch (const Failure& failure) {
            observation.error = failure.what();
        }
        next = std::max<Clock::time_point>(next + (observation.data ? kSamplePeriod : kRetryPeriod),
                                           Clock::now());
        Publish(observation);
    } while (PauseUntil(next));
}

/// So that the first observation already says whether its data is fresh.
void GripperMonitor::AwaitProbe() {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, stop.get_token(), patienceWithProbe,
                     [this] { return silence.IsProbed(); });
}

void GripperMonitor::Publish(Observation& observation) {
    const std::lock_guard lock(mutex);
    silence.AddData(observation.data, observation.time);
    observation.silentSince = silence.SilentSince();
    observation.probed = silence.IsProbed();
    observation.frozen = silence.IsFrozen();
    observation.calls = sampleDaemon.AnsweredCalls() + probeCalls;
    observations.push_back(observation);
    changed.notify_all();
}

void GripperMonitor::Probe() {
    const Gripper gripper(probeDaemon, device);
    do {
        ProbeOnce(gripper);
    } while (PauseUntil(Clock::now() + kProbePause));
}

void GripperMonitor::ProbeOnce(const Gripper& gripper) {
    const auto start = Clock::now();
    bool answers = false;
    try {
        answers = gripper.MasterAnswers();
    } catch (const Failure&) {  // also when the call timed out before the daemon did
    }
    const std::lock_guard lock(mutex);
    silence.AddProbe(answers, start);
    probeCalls = probeDaemon.AnsweredCalls();
    changed.notify_all();
}

bool GripperMonitor::PauseUntil(Clock::time_point time) {
    std::unique_lock lock(mutex);
    changed.wait_until(lock, stop.get_token(), time, [] { return false; });
    return !stop.stop_requested();
}

}  // namespace tavrik
