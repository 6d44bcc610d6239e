#include "client/SettingsTransfer.h"

#include <chrono>
#include <cmath>
#include <thread>
#include <utility>

#include "client/Daemon.h"
#include "client/Failure.h"
#include "client/MotionJudge.h"
#include "client/Values.h"

namespace tavrik {

namespace {

using Kind = Setting::Kind;

/// Within this time, replies to earlier requests have arrived.
constexpr std::chrono::milliseconds kLateReplies(100);

/// The parameters of getter and setter between device string and value.
xmlrpc_c::carray Numbers(const SettingPlace& place) {
    if (place.setting->place == Setting::Place::Gripper) {
        return {};
    }
    return {xmlrpc_c::value_int(place.number)};
}

xmlrpc_c::value ToParameter(Kind kind, int value) {
    switch (kind) {
        case Kind::Flag:
            return xmlrpc_c::value_boolean(value != 0);
        case Kind::Limit:
            return xmlrpc_c::value_double(LimitToSend(value / kLimitSteps));
        default:
            return xmlrpc_c::value_int(value);
    }
}

Failure ChangedMeanwhile(const Gripper& gripper) {
    return {ExitStatus::NotAtRest,
            gripper.Name() + ": another client changes its settings: stop it, then try again"};
}

/// Whether a status means that this value, and not the connection, is the problem.
bool IsRefusal(const Gripper& gripper, int status) {
    switch (ExitStatusFor(status)) {
        case ExitStatus::Refused:
            return true;
        case ExitStatus::NotPossible:
            return gripper.Get<int>("GetGripperInterface") == 0;
        default:
            return false;
    }
}

}  // namespace

void StillnessGuard::Check() {
    const ProcessData data = gripper.ReadProcessData();
    if (!data.certain) {
        throw Failure(ExitStatus::NoProcessData,
                      gripper.Name() +
                          ": no process data, or at 0.00 in state 0: check its cable and power, or "
                          "open it, then try again");
    }
    if (!first) {
        first = data;
        start = Clock::now();
    }
    if (data.state != first->state || IsMotion(first->position, data.position)) {
        throw Failure(ExitStatus::NotAtRest, gripper.Name() + ": moves, now at " +
                                                 HundredthsText(data.position) + " in state " +
                                                 std::to_string(data.state) +
                                                 ": stop the program that uses it, then try again");
    }
}

void StillnessGuard::Watch() {
    constexpr std::chrono::milliseconds kLongEnough(500);
    constexpr std::chrono::milliseconds kPause(20);
    while (Clock::now() - start < kLongEnough) {
        std::this_thread::sleep_for(kPause);
        Check();
    }
}

GripperSettings SettingsTransfer::Read(const Progress& progress) {
    guard.Check();
    GripperSettings settings;
    settings.gripper = gripper.DeviceString();
    settings.checksum = ReadChecksum();
    settings.model = NarrowModel(gripper.Model(), gripper.DeviceString()).name;
    const auto places = PlacesOf(settings.model);
    for (const SettingPlace& place : places) {
        settings.values[place] = ReadValue(place);
        guard.Check();
        progress(static_cast<double>(settings.values.size()) / static_cast<double>(places.size()));
    }
    for (const SettingPlace& place : DoubtfulZeros(settings)) {
        settings.values[place] = ReadValue(place);
    }
    guard.Watch();
    if (ReadChecksum() != settings.checksum) {
        throw ChangedMeanwhile(gripper);
    }
    return settings;
}

void SettingsTransfer::Write(const GripperSettings& before,
                             const std::vector<SettingDifference>& differences,
                             const Progress& progress) {
    steps.clear();
    for (const SettingDifference& difference : differences) {
        steps.push_back({difference});
    }
    guard.Check();
    if (ReadChecksum() != before.checksum) {
        throw ChangedMeanwhile(gripper);
    }
    double done = 0;
    for (Step& step : steps) {
        guard.Check();
        WriteValue(step);
        progress(++done / static_cast<double>(steps.size()));
    }
}

GripperSettings SettingsTransfer::ReadBack(const GripperSettings& wanted,
                                           const Progress& progress) {
    std::this_thread::sleep_for(kLateReplies);
    GripperSettings found = Read(progress);
    for (const SettingDifference& difference : Differences(found, wanted)) {
        if (found.values.contains(difference.place)) {
            std::this_thread::sleep_for(kLateReplies);
            found.values[difference.place] = ReadValue(difference.place);
        }
    }
    return found;
}

/// Tries twice: of hundreds of replies, one may be lost or late.
xmlrpc_c::value SettingsTransfer::ReadSetting(const std::string& getter,
                                              const xmlrpc_c::carray& rest) const {
    try {
        return gripper.ReadSetting(getter, rest);
    } catch (const Failure& failure) {
        if (failure.Status() != ExitStatus::NoAnswer) {
            throw;
        }
    }
    return gripper.ReadSetting(getter, rest);
}

int SettingsTransfer::ReadValue(const SettingPlace& place) const {
    const std::string getter(place.setting->getter);
    const auto answer = ReadSetting(getter, Numbers(place));
    switch (place.setting->kind) {
        case Kind::Flag:
            return Daemon::As<bool>(getter, answer) ? 1 : 0;
        case Kind::Limit:
            return static_cast<int>(std::lround(Daemon::As<double>(getter, answer) * kLimitSteps));
        default:
            return Daemon::As<int>(getter, answer);
    }
}

std::int64_t SettingsTransfer::ReadChecksum() const {
    const std::string getter(FindSetting("checksum").getter);
    const auto answer = ReadSetting(getter, {});
    if (answer.type() != xmlrpc_c::value::TYPE_I8) {
        throw Failure(ExitStatus::BadAnswer, getter + ": the reply has an unexpected type");
    }
    return xmlrpc_c::value_i8(answer).cvalue();
}

void SettingsTransfer::WriteValue(Step& step) const {
    const auto& [place, from, to] = step.difference;
    xmlrpc_c::carray arguments = Numbers(place);
    arguments.push_back(ToParameter(place.setting->kind, to));
    step.result = Result::Unknown;
    step.status = gripper.Command(std::string(place.setting->setter), arguments);
    if (step.status == 0) {
        step.result = Result::Written;
    } else if (IsRefusal(gripper, step.status)) {
        step.result = Result::Refused;
    } else {
        const bool isSent = ExitStatusFor(step.status) == ExitStatus::NoAnswer;
        step.result = isSent ? Result::Unknown : Result::NotWritten;
        throw Failure(ExitStatusFor(step.status),
                      gripper.StatusText(step.status, std::string(place.setting->setter)));
    }
}

}  // namespace tavrik
