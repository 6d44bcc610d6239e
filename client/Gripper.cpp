#include "client/Gripper.h"

#include <algorithm>
#include <array>

#include "client/GripperModels.h"
#include "client/MethodTable.h"
#include "client/Printable.h"

namespace tavrik {

namespace {

using Clock = std::chrono::steady_clock;

/// The daemon waits 1 s for a master. A reply that took so long is not the gripper's.
constexpr std::chrono::milliseconds kMasterTimeout(950);

/// Between two calls of GetPDINExcerpt while there is no process data.
constexpr std::chrono::seconds kExcerptPause(1);

/// Whether `call` ended before the daemon can have stopped waiting for the master.
template <typename Call>
bool IsInTime(Call call) {
    const auto start = Clock::now();
    call();
    return Clock::now() - start < kMasterTimeout;
}

}  // namespace

std::string Gripper::Name() const {
    return Printable(deviceString);
}

ProcessData Gripper::ReadProcessData() const {
    const auto read = [this] { return ProcessData(Get<int>("GetPDINExcerpt")); };
    const ProcessData data = read();
    if (data.certain || Get<int>("GetState") >= 0) {
        return data;
    }
    if (!IsListed()) {  // otherwise the list may just have been locked
        throw Failure(ExitStatus::NoGripper, Name() + ": no longer known to the daemon");
    }
    return read();
}

bool Gripper::IsListed() const {
    const auto listed = daemon.Grippers();  // waits while the list of grippers is locked
    return std::ranges::find(listed, deviceString) != listed.end();
}

bool Gripper::MasterAnswers() const {
    return IsInTime([this] { Get<int>("GetOverrideGrip"); });
}

xmlrpc_c::value Gripper::Call(const std::string& method, const xmlrpc_c::carray& arguments) const {
    xmlrpc_c::paramList parameters;
    parameters.addc(deviceString);
    for (const auto& parameter : arguments) {
        parameters.add(parameter);
    }
    return daemon.Call(method, parameters);
}

int Gripper::Command(const std::string& method, const xmlrpc_c::carray& arguments) const {
    return Daemon::As<int>(method, Call(method, arguments));
}

xmlrpc_c::value Gripper::ReadSetting(const std::string& method,
                                     const xmlrpc_c::carray& arguments) const {
    xmlrpc_c::value answer;
    if (!IsInTime([&] { answer = Call(method, arguments); })) {
        throw Failure(ExitStatus::NoAnswer, Name() + ": its master did not answer within 1 s");
    }
    return answer;
}

std::string Gripper::Model() const {
    static constexpr int kFirst = 0;  // parameter set, LED
    constexpr std::array kLedMethods{"GetLEDAnimation", "GetLEDColor", "GetLEDSpeed"};
    if (std::ranges::any_of(kLedMethods,
                            [this](const char* method) { return Get<int>(method, kFirst) != 0; })) {
        return ModelsWith(Feature::LedsAndHoldfast, " or ");
    }
    const bool isAdjustable =
        Get<int>("GetForce", kFirst) != 0 || Get<bool>("GetReferenceDirection");
    return isAdjustable ? ModelsWith(Feature::ForceAndReference, " or ") : "TLM?";
}

std::string Gripper::StatusText(int status, const std::string& method) const {
    return Name() + ": " +
           (ExitStatusFor(status) == ExitStatus::NotPossible ? WhyNotPossible(method)
                                                             : tavrik::StatusText(status));
}

std::string Gripper::WhyNotPossible(const std::string& method) const {
    const std::string status = "status 3: ";
    if (!IsListed()) {
        return status + "not plugged in";
    }
    if (Get<int>("GetGripperInterface") != 0) {
        return status + "the daemon is busy with another master: try again";
    }
    const auto* const found = FindMethod(method);
    if (found != nullptr && found->needs != Feature::None) {
        const ModelGuess model = NarrowModel(Model(), deviceString);
        if (MayLack(model.name, found->needs)) {
            return status + "not supported by its model (" + model.Text() + "), only by " +
                   ModelsWith(found->needs, " and ");
        }
    }
    return status + "error 3 of its master, or the daemon was briefly busy: try again";
}

ProcessData ProcessDataReader::Read() {
    const auto now = Clock::now();
    const bool isDue = now - lastExcerpt >= kExcerptPause;
    if (last.certain || isDue || !IsStillZero()) {
        last = gripper.ReadProcessData();
        lastExcerpt = now;
    }
    return last;
}

bool ProcessDataReader::IsStillZero() const {
    return gripper.Get<int>("GetState") == 0 && gripper.Get<double>("GetPos") == 0;
}

}  // namespace tavrik
