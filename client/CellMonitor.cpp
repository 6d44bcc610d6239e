#include "client/CellMonitor.h"

#include <algorithm>
#include <utility>

#include "client/Failure.h"

namespace tavrik {

namespace {
constexpr std::chrono::milliseconds kSamplePeriod(50);
constexpr std::chrono::seconds kRetryPeriod(1);  // each call may log a line in the daemon
constexpr std::chrono::seconds kProbePause(1);
constexpr std::chrono::milliseconds kPatienceWithProbes(1500);  // one without answer takes 1 s
}  // namespace

CellMonitor::CellMonitor(const Endpoint& endpoint, const CellScope& scope)
    : scope(scope),
      sampleDaemon(endpoint, stop.get_token()),
      probeDaemon(endpoint, stop.get_token()) {
    Add(scope.devices);
    sampler = std::thread(&CellMonitor::Sample, this);
    if (scope.follow || !scope.passive) {
        prober = std::thread(&CellMonitor::Probe, this);
    }
}

CellMonitor::~CellMonitor() {
    stop.request_stop();
    sampler.join();
    if (prober.joinable()) {
        prober.join();
    }
}

std::vector<Observation> CellMonitor::Take(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, patience, [this] { return !observations.empty(); });
    return std::exchange(observations, {});
}

std::vector<CellMonitor::Subject*> CellMonitor::Subjects() {
    const std::lock_guard lock(mutex);
    std::vector<Subject*> found;
    for (Subject& subject : subjects) {
        found.push_back(&subject);
    }
    return found;
}

void CellMonitor::Sample() {
    AwaitProbes();
    while (PauseUntil(SampleDue())) {
    }
}

/// So that the first observations already say whether their data is fresh.
void CellMonitor::AwaitProbes() {
    std::unique_lock lock(mutex);
    const auto patience = scope.passive ? std::chrono::milliseconds(0) : kPatienceWithProbes;
    changed.wait_for(lock, stop.get_token(), patience, [this] {
        return std::ranges::all_of(subjects,
                                   [](const Subject& each) { return each.silence.IsProbed(); });
    });
}

/// @return when the next sample is due
CellMonitor::Clock::time_point CellMonitor::SampleDue() {
    auto next = Clock::now() + kSamplePeriod;
    for (Subject* const subject : Subjects()) {
        if (subject->due <= Clock::now() && !stop.stop_requested()) {
            SampleOne(*subject);
        }
        next = std::min(next, subject->due);
    }
    return next;
}

void CellMonitor::SampleOne(Subject& subject) {
    Observation observation;
    observation.gripper = subject.sampled.DeviceString();
    observation.time = Clock::now();
    try {
        observation.data = subject.reader.Read();
    } catch (const Failure& failure) {
        observation.error = failure.what();
    }
    subject.due = observation.data ? std::max(subject.due + kSamplePeriod, Clock::now())
                                   : Clock::now() + kRetryPeriod;
    Publish(subject, observation);
}

void CellMonitor::Publish(Subject& subject, Observation& observation) {
    const std::lock_guard lock(mutex);
    subject.silence.AddData(observation.data, observation.time);
    observation.silentSince = subject.silence.SilentSince();
    observation.probed = subject.silence.IsProbed();
    observation.frozen = subject.silence.IsFrozen();
    observation.calls = sampleDaemon.AnsweredCalls() + probeCalls;
    observations.push_back(observation);
    changed.notify_all();
}

void CellMonitor::Probe() {
    do {
        if (scope.follow) {
            Follow();
        }
        for (Subject* const subject : Subjects()) {
            if (!scope.passive && !stop.stop_requested()) {
                ProbeOne(*subject);
            }
        }
    } while (PauseUntil(Clock::now() + kProbePause));
}

void CellMonitor::Follow() {
    try {
        Add(probeDaemon.Grippers());
    } catch (const Failure&) {  // the sampler reports it
    }
}

void CellMonitor::Add(const std::vector<std::string>& devices) {
    const std::lock_guard lock(mutex);
    for (const std::string& device : devices) {
        const auto isSame = [&device](const Subject& each) {
            return each.sampled.DeviceString() == device;
        };
        if (std::ranges::none_of(subjects, isSame)) {
            subjects.emplace_back(sampleDaemon, probeDaemon, device);
        }
    }
}

void CellMonitor::ProbeOne(Subject& subject) {
    const auto start = Clock::now();
    bool answers = false;
    try {
        answers = subject.probed.MasterAnswers();
    } catch (const Failure&) {  // also when the call timed out before the daemon did
    }
    const std::lock_guard lock(mutex);
    subject.silence.AddProbe(answers, start);
    probeCalls = probeDaemon.AnsweredCalls();
    changed.notify_all();
}

bool CellMonitor::PauseUntil(Clock::time_point time) {
    std::unique_lock lock(mutex);
    changed.wait_until(lock, stop.get_token(), time, [] { return false; });
    return !stop.stop_requested();
}

}  // namespace tavrik
