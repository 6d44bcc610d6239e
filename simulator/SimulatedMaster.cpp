#include "simulator/SimulatedMaster.h"

#include <algorithm>

#include "simulator/TextTools.h"

namespace simulator {

namespace {

using std::chrono::milliseconds;

constexpr std::size_t kRememberedLines = 50;
constexpr milliseconds kModeChangeTime{5};
constexpr milliseconds kRestartStepTime{50};
constexpr unsigned kVendorId = 31249;

/// Device information: cycle time, speed, revision, PDIN and PDOUT bits, ..., vendor and device id.
std::string FactoryDeviceInfo(const GripperModel& model) {
    return "1,3,17,32,16,20,0," + std::to_string(kVendorId) + "," + std::to_string(model.deviceId);
}

}  // namespace

QueryEnd ParseQueryEnd(std::string_view text) {
    return ParseChoice(text, "fin", "data") ? QueryEnd::Finish : QueryEnd::DataLine;
}

SimulatedMaster::SimulatedMaster(const MasterSettings& settings, const GripperModel& model,
                                 const Bytes& product, const Bytes& serial, TimePoint now)
    : settings(settings),
      gripper(model, product, serial, now),
      deviceInfo(FactoryDeviceInfo(model)),
      storedNumbers{{"DOUTINFO", "0"}, {"ROBINPUT", "0"}, {"ROBOUTPUT", "0"}} {
    answers.SetPieceLength(settings.pieceLength);
    PowerUp(now);
}

void SimulatedMaster::PowerUp(TimePoint now) {
    requestAssembler.Clear();
    answers.Clear();
    modeSteps.clear();
    Reset(now);
    EnterMode(settings.startMode, now);
    SetStreamRate(settings.streamRate, now);
}

void SimulatedMaster::FillBuffer(TimePoint now) {
    constexpr int kWaitingLines = 8;
    for (int line = 0; line < kWaitingLines && settings.streamRate != 0 && !silent; ++line) {
        answers.Push(StreamLine(), now);
    }
}

void SimulatedMaster::Reset(TimePoint now) {
    numbers = storedNumbers;
    gripper.PowerUp(now);
}

void SimulatedMaster::Receive(std::string_view bytes, TimePoint now) {
    for (const std::string& line : requestAssembler.Add(bytes)) {
        HandleLine(line, now);
    }
}

void SimulatedMaster::HandleLine(const std::string& line, TimePoint now) {
    ++requestCount;
    requestLines.push_back(line);
    if (requestLines.size() > kRememberedLines) {
        requestLines.pop_front();
    }
    const auto request = ParseRequest(line);
    if (!request || silent || mute || muteForKey.contains(request->key)) {
        return;
    }
    gripper.Advance(now);
    answers.Push(Answer(*request, now), now + answerDelay);
}

std::optional<std::string> SimulatedMaster::InjectedError(const std::string& key) const {
    const auto place = errorForKey.find(key);
    return place == errorForKey.end() ? errorForAll : place->second;
}

std::string SimulatedMaster::Answer(const Request& request, TimePoint now) {
    if (const auto code = InjectedError(request.key)) {
        return "ERR " + request.key + " " + *code + "\n";
    }
    const Outcome outcome = Execute(request, now);
    const auto* const error = std::get_if<ErrorCode>(&outcome);
    if (error != nullptr && *error != ErrorCode::None) {
        const auto code = static_cast<unsigned>(*error);
        return "ERR " + request.key + " " + std::to_string(code) + "\n";
    }
    std::string dataLine =
        error == nullptr ? request.key + "=" + std::get<std::string>(outcome) + "\n" : "";
    if (request.form == RequestForm::Query && settings.queryEnd == QueryEnd::DataLine) {
        return dataLine;
    }
    return "ACK " + request.key + "\n" + dataLine + "FIN " + request.key + "\n";
}

SimulatedMaster::Outcome SimulatedMaster::Execute(const Request& request, TimePoint now) {
    switch (request.form) {
        case RequestForm::Query:
            return Query(request.key);
        case RequestForm::Assignment:
            return Assign(request);
        case RequestForm::Call:
            return Call(request, now);
    }
    return ErrorCode::UnknownKey;
}

SimulatedMaster::Outcome SimulatedMaster::Query(const std::string& key) const {
    if (key == "ID") {
        return settings.id;
    }
    if (key == "MODE") {
        return std::to_string(currentMode);
    }
    if (const auto number = numbers.find(key); number != numbers.end()) {
        return number->second;
    }
    if (key == "PDIN" || key == "PDOUT") {
        if (currentMode != mode::kOperate) {
            return ErrorCode::WrongMode;
        }
        return FormatByteList(key == "PDIN" ? ProcessInput() : gripper.ProcessOutput());
    }
    const auto parameterKey = ParseParameterKey(key);
    if (!parameterKey && key != "DEVINFO") {
        return ErrorCode::UnknownKey;
    }
    if (!TalksToGripper()) {
        return ErrorCode::WrongMode;
    }
    if (!parameterKey) {
        return "[" + deviceInfo + "]";
    }
    if (const Bytes* const value = gripper.Parameters().Find(*parameterKey)) {
        return FormatByteList(*value);
    }
    return ErrorCode::NoSuchParameter;
}

SimulatedMaster::Outcome SimulatedMaster::Assign(const Request& request) {
    if (numbers.contains(request.key)) {
        return AssignNumber(request.key, request.argument);
    }
    if (request.key == "PDOUT") {
        const ErrorCode error = AssignProcessOutput(request.argument);
        if (error != ErrorCode::None || !settings.reportProcessOutput) {
            return error;
        }
        return FormatByteList(gripper.ProcessOutput());
    }
    const auto parameterKey = ParseParameterKey(request.key);
    if (!parameterKey) {
        return ErrorCode::UnknownKey;
    }
    const auto bytes = ParseByteList(request.argument);
    if (!bytes) {
        return ErrorCode::BadArgument;
    }
    if (!TalksToGripper()) {
        return ErrorCode::WrongMode;
    }
    return gripper.WriteParameter(*parameterKey, *bytes);
}

ErrorCode SimulatedMaster::AssignNumber(const std::string& key, const std::string& argument) {
    if (!ParseNumber(argument)) {
        return ErrorCode::BadArgument;
    }
    numbers[key] = argument;
    return ErrorCode::None;
}

ErrorCode SimulatedMaster::AssignProcessOutput(const std::string& argument) {
    const auto bytes = ParseByteList(argument);
    if (!bytes) {
        return ErrorCode::BadArgument;
    }
    if (currentMode != mode::kOperate) {
        return ErrorCode::WrongMode;
    }
    if (bytes->size() != SimulatedGripper::kProcessOutputLength) {
        return ErrorCode::BadLength;
    }
    gripper.SetProcessOutput(*bytes);
    return ErrorCode::None;
}

ErrorCode SimulatedMaster::Call(const Request& request, TimePoint now) {
    if (request.key == "FALLBACK") {
        return CallFallback(request.argument, now);
    }
    const bool known = request.key == "OPERATE" || request.key == "RESTART" ||
                       request.key == "SYSRESET" || request.key == "STORECONFIG";
    if (!known) {
        return ErrorCode::UnknownKey;
    }
    if (!request.argument.empty()) {
        return ErrorCode::BadArgument;
    }
    if (request.key == "STORECONFIG") {
        storedNumbers = numbers;
    } else if (request.key == "RESTART") {
        Restart(now);
    } else if (request.key == "SYSRESET") {
        Reset(now);
        Restart(now);
    } else if (currentMode == mode::kPreoperate) {
        modeSteps = {{now + answerDelay + kModeChangeTime, mode::kOperate}};
    } else if (currentMode != mode::kOperate) {
        return ErrorCode::WrongMode;
    }
    return ErrorCode::None;
}

ErrorCode SimulatedMaster::CallFallback(const std::string& argument, TimePoint now) {
    if (argument == "1") {
        modeSteps = {{now + answerDelay + kModeChangeTime, mode::kFallback}};
        return ErrorCode::None;
    }
    if (argument != "0") {
        return ErrorCode::BadArgument;
    }
    if (currentMode == mode::kFallback) {
        Restart(now);
    }
    return ErrorCode::None;
}

/// Sets up communication again, in steps long enough for a slow poller to see each.
void SimulatedMaster::Restart(TimePoint now) {
    modeSteps.clear();
    TimePoint due = now + answerDelay + kModeChangeTime;
    for (const unsigned code : {mode::kEstablishing, mode::kStartup, mode::kPreoperate}) {
        modeSteps.push_back({due, code});
        due += kRestartStepTime;
    }
}

void SimulatedMaster::SetMode(unsigned code, TimePoint now) {
    modeSteps.clear();
    ChangeMode(code, now);
}

void SimulatedMaster::ChangeMode(unsigned code, TimePoint now) {
    EnterMode(code, now);
    if (!silent) {
        answers.Push("@MODE=" + std::to_string(code) + "\n", now);
    }
}

/// Process output data is valid in operate only: leaving it disables the drive, and entering it
/// starts with zero bytes.
void SimulatedMaster::EnterMode(unsigned code, TimePoint now) {
    gripper.Advance(now);
    if (code != mode::kOperate) {
        gripper.SetProcessOutput(Bytes(SimulatedGripper::kProcessOutputLength, 0));
    }
    if (code == mode::kPowerFault) {
        gripper.PowerUp(now);
    }
    currentMode = code;
}

bool SimulatedMaster::TalksToGripper() const {
    return currentMode == mode::kPreoperate || currentMode == mode::kOperate;
}

std::string SimulatedMaster::NextText(TimePoint now) {
    while (!modeSteps.empty() && modeSteps.front().due <= now) {
        ChangeMode(modeSteps.front().code, now);
        modeSteps.pop_front();
    }
    std::string text = answers.Pop(now);
    if (!text.empty() || settings.streamRate == 0 || nextStreamLine > now) {
        return text;
    }
    const bool lineIsFree = !silent && !answers.InsideText();
    SetStreamRate(settings.streamRate, now);
    gripper.Advance(now);
    return lineIsFree ? StreamLine() : std::string();
}

std::string SimulatedMaster::StreamLine() const {
    return "@PDIN=" + FormatByteList(ProcessInput()) + "\n";
}

std::optional<TimePoint> SimulatedMaster::NextDue() const {
    std::optional<TimePoint> due = answers.NextDue();
    const auto consider = [&due](TimePoint other) { due = due ? std::min(*due, other) : other; };
    if (!modeSteps.empty()) {
        consider(modeSteps.front().due);
    }
    if (settings.streamRate != 0) {
        consider(nextStreamLine);
    }
    return due;
}

SimulatedGripper& SimulatedMaster::Gripper(TimePoint now) {
    gripper.Advance(now);
    return gripper;
}

Bytes SimulatedMaster::ProcessInput() const {
    return currentMode == mode::kOperate ? gripper.ProcessInput() : Bytes();
}

void SimulatedMaster::SetSilent(bool on) {
    silent = on;
    answers.Clear();
}

void SimulatedMaster::SetMute(bool on, const std::optional<std::string>& key) {
    if (!key) {
        mute = on;
        muteForKey.clear();
        answers.Clear();
    } else if (on) {
        muteForKey.insert(*key);
    } else {
        muteForKey.erase(*key);
    }
}

void SimulatedMaster::SetError(const std::string& code, const std::optional<std::string>& key) {
    if (key) {
        errorForKey[*key] = code;
    } else {
        errorForAll = code;
    }
}

void SimulatedMaster::ClearError(const std::optional<std::string>& key) {
    if (key) {
        errorForKey.erase(*key);
    } else {
        errorForAll.reset();
        errorForKey.clear();
    }
}

/// All masters stream on the same ticks, so that one wake-up serves them all.
void SimulatedMaster::SetStreamRate(unsigned linesPerSecond, TimePoint now) {
    settings.streamRate = linesPerSecond;
    if (linesPerSecond != 0) {
        const Clock::duration period =
            std::chrono::nanoseconds(std::chrono::seconds(1)) / linesPerSecond;
        nextStreamLine = TimePoint((now.time_since_epoch() / period + 1) * period);
    }
}

}  // namespace simulator
