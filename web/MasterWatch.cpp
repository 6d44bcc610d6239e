#include "web/MasterWatch.h"

#include <algorithm>
#include <exception>

#include "client/Gripper.h"

namespace tavrik {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPause(250);  // the daemon logs nine lines for each request
constexpr std::chrono::milliseconds kRest(500);   // without a change; before, the data is live
constexpr std::chrono::seconds kForgotten(3);     // a gripper that is no longer read
// The longest period while silent: a late answer soon ends the silence.
constexpr std::chrono::milliseconds kSilentPeriod(1000);

}  // namespace

MasterWatch::MasterWatch(const Endpoint& endpoint)
    : endpoint(endpoint), thread(&MasterWatch::Run, this) {}

MasterWatch::~MasterWatch() {
    stop.request_stop();
    thread.join();
}

std::optional<MasterWatch::TimePoint> MasterWatch::Check(const std::string& device,
                                                         const ProcessData& data, TimePoint time,
                                                         std::chrono::milliseconds period) {
    const std::lock_guard lock(mutex);
    if (subjects.empty()) {
        changed.notify_all();  // with subjects, the thread looks periodically
    }
    Subject& subject = subjects[device];
    if (subject.data != data) {
        subject.changed = time;
    }
    subject.period = period;
    subject.data = data;
    subject.checked = time;
    subject.silence.AddData(data, time);
    return subject.silence.IsFrozen() ? subject.silence.SilentSince() : std::nullopt;
}

void MasterWatch::Run() {
    Daemon daemon(endpoint, stop.get_token());
    std::unique_lock lock(mutex);
    while (!stop.stop_requested()) {
        changed.wait(lock, stop.get_token(), [this] { return !subjects.empty(); });
        if (const std::string device = NextDue(Clock::now()); !device.empty()) {
            lock.unlock();
            Poll(daemon, device);
            lock.lock();
        }
        changed.wait_for(lock, stop.get_token(), kPause, [] { return false; });
    }
}

/// Of the grippers that are due, the one polled longest ago; empty if there is none.
std::string MasterWatch::NextDue(TimePoint now) {
    std::erase_if(subjects,
                  [now](const auto& each) { return now - each.second.checked > kForgotten; });
    std::string device;
    TimePoint oldest = TimePoint::max();
    for (const auto& [name, subject] : subjects) {
        // Without process data, it is known that the values mean nothing.
        const auto period = subject.silence.SilentSince() ? std::min(subject.period, kSilentPeriod)
                                                          : subject.period;
        const bool isDue = now - subject.polled >= period && now - subject.changed >= kRest &&
                           subject.data->certain;
        if (isDue && subject.polled < oldest) {
            oldest = subject.polled;
            device = name;
        }
    }
    return device;
}

void MasterWatch::Poll(Daemon& daemon, const std::string& device) {
    const auto start = Clock::now();
    std::optional<bool> answers;  // nothing if the daemon did not answer
    try {
        answers = Gripper(daemon, device).MasterAnswers();
    } catch (
        const std::exception&) {  // also what the XML-RPC library throws; the poller reports it
    }
    const std::lock_guard lock(mutex);
    if (const auto place = subjects.find(device); place != subjects.end()) {
        Subject& subject = place->second;
        subject.polled = Clock::now();
        if (answers) {
            subject.silence.AddProbe(*answers, start);
        }
    }
}

}  // namespace tavrik
