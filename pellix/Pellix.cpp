#include "pellix/Pellix.h"

#include <sys/prctl.h>

#include <chrono>

#include "common/LogLine.h"
#include "pellix/CatchAll.h"
#include "pellix/DeviceText.h"
#include "pellix/Protocol.h"
#include "pellix/SerialConnection.h"

namespace pellix {

namespace {

constexpr double kCommandTimeout = 1.0;  // seconds
constexpr int kAttempts = 5;
constexpr std::chrono::milliseconds kRetryPause{100};
constexpr std::chrono::milliseconds kFallbackPause{100};
constexpr std::chrono::milliseconds kPollPeriod{10};
constexpr std::chrono::milliseconds kJoinPoll{1};
constexpr int kHighestMode = kModePowerFault;

/// How much later than requested the kernel may wake a link's polls.
constexpr std::chrono::nanoseconds kPollSlack = std::chrono::milliseconds(1);

/// Lets the kernel wake the calling thread together with other links' polls. One timer then wakes
/// many threads, which halves the processor time of 32 idle links.
void PollInStep() {
    ::prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(kPollSlack.count()));
}

void Join(std::thread& thread) {
    if (thread.joinable()) {
        thread.join();
    }
}

}  // namespace

Pellix::Pellix(const std::string& devicePath) : devicePath(devicePath) {
    try {
        auto connection = std::make_unique<SerialConnection>(devicePath);
        deviceHandler = std::make_unique<DeviceHandler>();
        commandHandler = std::make_unique<CommandHandler>(connection.get(), deviceHandler.get(),
                                                          kCommandTimeout);
        (void)connection.release();  // commandHandler owns it from here on
    } catch (...) {
        LogLine() << "Failed to open serial connection on " << devicePath;
        throw;
    }
}

Pellix::~Pellix() {
    EndThreads();
    Join(parserThread);
    Join(timeoutMonitorThread);
    JoinStateThread();
}

/// The state thread may be waiting for a command. The parser and the timeout monitor have ended, so
/// the command is expired here.
void Pellix::JoinStateThread() {
    while (!stateLoopEnded) {
        commandHandler->CheckTimeouts();
        std::this_thread::sleep_for(kJoinPoll);
    }
    Join(stateThread);
}

unsigned Pellix::Init() {
    running = true;
    parserThread = std::thread(&Pellix::ParserLoop, this);
    timeoutMonitorThread = std::thread(&Pellix::TimeoutMonitorLoop, this);
    if (const unsigned result = ReadMaster(); result != kResultOk) {
        running = false;
        Join(parserThread);
        Join(timeoutMonitorThread);
        return result;
    }
    stateLoopEnded = false;
    try {
        stateThread = std::thread(&Pellix::StateLoop, this);
    } catch (...) {
        stateLoopEnded = true;
        throw;
    }
    initialized = true;
    return kResultOk;
}

unsigned Pellix::ReadMaster() {
    if (const unsigned result = UpdateID(); result != kResultOk) {
        return result;
    }
    if (const unsigned result = UpdateMode(); result != kResultOk) {
        return result;
    }
    const int mode = GetDeviceMode();
    LogLine() << "Init: Device mode is " << ModeName(mode);
    if (mode != kModePreoperate && mode != kModeOperate) {
        return kResultOk;
    }
    if (const unsigned result = UpdateDeviceInfo(); result != kResultOk) {
        return result;
    }
    if (const unsigned result = UpdateDeviceString(); result != kResultOk) {
        return result;
    }
    connected = true;
    return kResultOk;
}

void Pellix::Stop() {
    stopped = true;
    commandHandler->SetDeviceRemoved();
}

void Pellix::Pin() {
    const std::lock_guard<std::mutex> lock(pinMutex);
    ++pins;
}

void Pellix::Unpin() {
    // Notifies under the lock, because the link may be destroyed as soon as the lock is released.
    const std::lock_guard<std::mutex> lock(pinMutex);
    if (--pins == 0) {
        unpinned.notify_all();
    }
}

bool Pellix::IsPinned() const {
    const std::lock_guard<std::mutex> lock(pinMutex);
    return pins > 0;
}

void Pellix::WaitUntilUnpinned() {
    std::unique_lock<std::mutex> lock(pinMutex);
    unpinned.wait(lock, [this] { return pins == 0; });
}

void Pellix::WaitUntilUnpinned(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(pinMutex);
    unpinned.wait_until(lock, deadline, [this] { return pins == 0; });
}

unsigned Pellix::Complete(Command* command) {
    if (command == nullptr) {
        return kResultNoCommand;
    }
    const int state = commandHandler->WaitForFinished(command);
    const unsigned result =
        state == kFinished ? kResultOk : static_cast<unsigned>(command->GetStatus());
    commandHandler->RemovePending(command);
    return result;
}

unsigned Pellix::Query(std::string_view key) {
    return Complete(commandHandler->SendQuery(std::string(key)));
}

unsigned Pellix::Assign(std::string_view key, const std::string& value) {
    return Complete(commandHandler->SendAssignment(std::string(key), value));
}

unsigned Pellix::Call(std::string_view key, const std::vector<std::string>& arguments) {
    return Complete(commandHandler->SendCall(std::string(key), arguments));
}

unsigned Pellix::RequestID() {
    return Query(kKeyId);
}

unsigned Pellix::RequestMode() {
    return Query(kKeyMode);
}

unsigned Pellix::RequestDeviceInfo() {
    return Query(kKeyDeviceInfo);
}

unsigned Pellix::RequestDeviceString() {
    if (const unsigned result = Query(FormatParameterKey(kProductId)); result != kResultOk) {
        return result;
    }
    return Query(FormatParameterKey(kSerialNumber));
}

unsigned Pellix::RequestPDOUT() {
    return Query(kKeyPdout);
}

unsigned Pellix::ReadParameter(unsigned index, unsigned subindex) {
    return Query(FormatParameterKey({index, subindex}));
}

unsigned Pellix::WriteParameter(unsigned index, unsigned subindex,
                                const std::vector<std::uint8_t>& bytes) {
    return Assign(FormatParameterKey({index, subindex}), FormatByteList(bytes));
}

unsigned Pellix::WritePDOUT(const std::vector<std::uint8_t>& bytes) {
    return Assign(kKeyPdout, FormatByteList(bytes));
}

unsigned Pellix::SetDOUTINFO(unsigned number) {
    return Assign(kKeyDoutInfo, std::to_string(number));
}

unsigned Pellix::SetROBINPUT(unsigned number) {
    return Assign(kKeyRobInput, std::to_string(number));
}

unsigned Pellix::SetROBOUTPUT(unsigned number) {
    return Assign(kKeyRobOutput, std::to_string(number));
}

unsigned Pellix::StoreConfig() {
    return Call(kKeyStoreConfig, {});
}

unsigned Pellix::SysReset() {
    return Call(kKeySysReset, {});
}

unsigned Pellix::Operate() {
    return Call(kKeyOperate, {});
}

unsigned Pellix::Restart() {
    return Call(kKeyRestart, {});
}

unsigned Pellix::Fallback(bool flag) {
    return Call(kKeyFallback, {flag ? "1" : "0"});
}

unsigned Pellix::UpdateID() {
    return Retry("ID", &Pellix::RequestID);
}

unsigned Pellix::UpdateMode() {
    return Retry("mode", &Pellix::RequestMode);
}

unsigned Pellix::UpdateDeviceInfo() {
    return Retry("device info", &Pellix::RequestDeviceInfo);
}

unsigned Pellix::UpdateDeviceString() {
    return Retry("device string", &Pellix::RequestDeviceString);
}

unsigned Pellix::Retry(std::string_view what, unsigned (Pellix::*request)()) {
    LogLine() << "Updating " << what;
    unsigned result = kResultOk;
    // On purpose: logs and pauses after the last attempt too, so that whatever the caller sends
    // next also comes 100 ms after the failure.
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        result = (this->*request)();
        if (result == kResultOk) {
            return result;
        }
        LogLine() << "Failed to update " << what << ": " << result;
        LogLine() << "Retrying (" << attempt << ")...";
        std::this_thread::sleep_for(kRetryPause);
    }
    LogLine() << "Failed (finally) to update " << what << ": " << result;
    return result;
}

std::string Pellix::GetID() const {
    return deviceHandler->GetID();
}

int Pellix::GetDeviceMode() const {
    return GetDevice().GetMode();
}

std::vector<std::uint8_t> Pellix::GetParameter(unsigned index, unsigned subindex) const {
    return GetDevice().GetParameter(index, subindex);
}

std::vector<std::uint32_t> Pellix::GetDeviceInfo() const {
    LogLine() << "DeviceInfo";
    return connected ? GetDevice().GetDeviceInfo() : std::vector<std::uint32_t>();
}

std::string Pellix::GetDeviceString() const {
    const std::lock_guard<std::mutex> lock(nameMutex);
    return CurrentName();
}

bool Pellix::IsNamed(std::string_view text) const {
    const std::lock_guard<std::mutex> lock(nameMutex);
    return CurrentName() == text;
}

/// Builds the name again only after a parameter changed, because every lookup compares the names
/// of all links. A missing parameter is looked up, and logged, each time. The caller holds
/// nameMutex.
const std::string& Pellix::CurrentName() const {
    if (!initialized) {
        LogLine() << "Pellix not initialized";
        return name;  // still empty
    }
    if (!connected) {
        LogLine() << "Pellix not connected";
        return name;  // still empty
    }
    const unsigned revision = GetDevice().GetParameterRevision();  // before reading the parameters
    if (nameRevision == revision) {
        return name;
    }
    const auto productId = GetParameter(kProductId.index, kProductId.subindex);
    const auto serialNumber = GetParameter(kSerialNumber.index, kSerialNumber.subindex);
    name = ToSafeText(productId);
    if (!serialNumber.empty()) {
        name += " SN:" + ToSafeText(serialNumber);
    }
    nameRevision.reset();
    if (!productId.empty() && !serialNumber.empty()) {
        nameRevision = revision;
    }
    return name;
}

std::string Pellix::GetModeName(int mode) {
    return ModeName(mode);
}

bool Pellix::IsMasterProduct(std::string_view product) {
    return product == "PELLIX" || product == "MARROK-7";
}

void Pellix::ParserLoop() {
    LogLine() << "Parser thread active";
    while (running) {
        if (const auto failure = CatchAll([this] { commandHandler->Parse(); })) {
            LogLine() << "Exception in parser thread: " << *failure;
        }
    }
    LogLine() << "Parser thread terminated";
}

void Pellix::TimeoutMonitorLoop() {
    PollInStep();
    LogLine() << "Timeout monitor thread active";
    while (running) {
        if (const auto failure = CatchAll([this] { commandHandler->CheckTimeouts(); })) {
            LogLine() << "Exception in timeout monitor thread: " << *failure;
        }
        std::this_thread::sleep_for(kPollPeriod);
    }
    LogLine() << "Timeout monitor thread terminated";
}

void Pellix::StateLoop() {
    PollInStep();
    LogLine() << "State thread active";
    int previous = kModeNone;
    while (running && !stopped) {
        if (const auto failure = CatchAll([&] { FollowMode(previous); })) {
            LogLine() << "Exception in state thread: " << *failure;
            std::this_thread::sleep_for(kPollPeriod);
        }
    }
    LogLine() << "State thread terminated";
    stateLoopEnded = true;
}

void Pellix::FollowMode(int& previous) {
    const int mode = GetDeviceMode();
    if (mode <= kHighestMode && mode != previous && !ActOnMode(mode)) {
        return;  // tries again at once while the mode stays the same
    }
    std::this_thread::sleep_for(kPollPeriod);
    previous = mode;
}

/// @return whether the action for `mode` is complete
bool Pellix::ActOnMode(int mode) {
    switch (mode) {
        case kModeEstablishCommunication:
            LogLine() << "ESTABCOMM";
            return true;
        case kModeStartup:
            LogLine() << "STARTUP";
            connected = true;
            return true;
        case kModePreoperate:
            LogLine() << "PREOPERATE";
            return SwitchToOperate();
        case kModeOperate:
            LogLine() << "OPERATE";
            RequestPDOUT();
            return true;
        case kModeFallback:
            LogLine() << "FALLBACK: Waiting and Restarting";
            std::this_thread::sleep_for(kFallbackPause);
            Restart();
            return true;
        case kModePowerFault:
            LogLine() << "POWERFAULT";
            return true;
        default:
            return true;
    }
}

bool Pellix::SwitchToOperate() {
    if (RequestDeviceInfo() != kResultOk || RequestDeviceString() != kResultOk) {
        return false;
    }
    LogLine() << "Switching to OPERATE";
    Operate();
    return true;
}

}  // namespace pellix
