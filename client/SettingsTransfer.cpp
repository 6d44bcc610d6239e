#include "client/SettingsTransfer.h"

#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>
#include <thread>
#include <utility>

#include "client/Failure.h"
#include "client/GripperModels.h"
#include "client/MotionJudge.h"
#include "client/Values.h"

namespace tavrik {

namespace {

using nlohmann::ordered_json;
using Kind = Setting::Kind;

/// Within this time, replies to earlier requests have arrived.
constexpr std::chrono::milliseconds kLateReplies(100);

xmlrpc_c::value::type_t AnswerType(Kind kind) {
    switch (kind) {
        case Kind::Limit:
            return xmlrpc_c::value::TYPE_DOUBLE;
        case Kind::Flag:
            return xmlrpc_c::value::TYPE_BOOLEAN;
        case Kind::Checksum:
            return xmlrpc_c::value::TYPE_I8;
        default:
            return xmlrpc_c::value::TYPE_INT;
    }
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

ordered_json ReadValue(const Gripper& gripper, const SettingPlace& place) {
    const std::string getter(place.setting->getter);
    const auto answer = gripper.ReadSetting(getter, place.Parameters());
    if (answer.type() != AnswerType(place.setting->kind)) {
        throw Failure(ExitStatus::BadAnswer, getter + ": the reply has an unexpected type");
    }
    return ToJson(answer);
}

ordered_json ReadBack(const Gripper& gripper, const SettingPlace& place,
                      const std::string& wanted) {
    ordered_json value = ReadValue(gripper, place);
    if (ValueText(*place.setting, value) == wanted) {
        return value;
    }
    std::this_thread::sleep_for(kLateReplies);
    return ReadValue(gripper, place);
}

void StillnessGuard::Check() {
    const ProcessData data = gripper.ReadProcessData();
    if (!data.certain) {
        throw Failure(ExitStatus::NoProcessData,
                      gripper.Name() +
                          ": no process data, or at 0.00 in state 0: check its cable and power, or "
                          "open the gripper, then try again");
    }
    if (!first) {
        first = data;
        start = Clock::now();
    }
    if (data.state != first->state || IsMotion(first->position, data.position)) {
        throw Failure(ExitStatus::NotAtRest, gripper.Name() + ": is moving, now at " +
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

std::string SettingsTransfer::Step::ResultText() const {
    switch (result) {
        case Result::Written:
            return "written";
        case Result::Refused:
            return "refused: status " + std::to_string(status);
        case Result::Unknown:
            return "possibly written";
        default:
            return "not written";
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
        settings.values[place] = ReadInteger(place);
        guard.Check();
        progress(static_cast<double>(settings.values.size()) / static_cast<double>(places.size()));
    }
    for (const SettingPlace& place : DoubtfulZeros(settings)) {
        settings.values[place] = ReadInteger(place);
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
            found.values[difference.place] = ReadInteger(difference.place);
        }
    }
    return found;
}

/// Tries twice: of hundreds of replies, one may be lost or late.
ordered_json SettingsTransfer::TryToRead(const SettingPlace& place) const {
    try {
        return ReadValue(gripper, place);
    } catch (const Failure& failure) {
        if (failure.Status() != ExitStatus::NoAnswer) {
            throw;
        }
    }
    return ReadValue(gripper, place);
}

int SettingsTransfer::ReadInteger(const SettingPlace& place) const {
    const ordered_json value = TryToRead(place);
    return place.setting->kind == Kind::Limit
               ? static_cast<int>(std::lround(value.get<double>() * kLimitSteps))
               : value.get<int>();  // 1 for true
}

std::int64_t SettingsTransfer::ReadChecksum() const {
    return TryToRead({&FindSetting("checksum")}).get<std::int64_t>();
}

void SettingsTransfer::WriteValue(Step& step) const {
    const auto& [place, from, to] = step.difference;
    xmlrpc_c::carray arguments = place.Parameters();
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
