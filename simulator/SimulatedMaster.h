#pragma once

#include <array>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/AnswerQueue.h"
#include "simulator/LineAssembler.h"
#include "simulator/LineProtocol.h"
#include "simulator/Master.h"
#include "simulator/SimulatedGripper.h"

namespace simulator {

/// Data-link modes of an IO-Link port, as "MODE" lines carry them.
namespace mode {
constexpr unsigned kNone = 0;
constexpr unsigned kEstablishing = 1;
constexpr unsigned kStartup = 2;
constexpr unsigned kPreoperate = 3;
constexpr unsigned kOperate = 4;
constexpr unsigned kFallback = 5;
constexpr unsigned kPowerFault = 7;
constexpr unsigned kLargest = 255;  ///< codes above kPowerFault mean nothing to anybody
}  // namespace mode

/// How a query ends: ACK, data line, FIN; or the data line alone.
enum class QueryEnd { Finish, DataLine };

constexpr unsigned kLargestStreamRate = 10000;

struct MasterSettings {
    std::string id = "PELLIX";
    unsigned startMode = mode::kPreoperate;
    unsigned streamRate = 100;  ///< "@PDIN" lines a second; 0 for none
    QueryEnd queryEnd = QueryEnd::Finish;
    bool reportProcessOutput = true;  ///< whether an assignment of PDOUT is answered with PDOUT too
    std::size_t pieceLength = 0;      ///< answers leave in pieces of so many bytes; 0 for whole
};

/// A PELLIX master with a gripper on its port: reads request lines, answers them, streams process
/// data.
class SimulatedMaster final : public Master {
public:
    SimulatedMaster(const MasterSettings& initialSettings, const GripperModel& model,
                    const Bytes& product, const Bytes& serial, TimePoint now);

    /// Plugged in: start mode, volatile settings and gripper as after a power failure.
    void PowerUp(TimePoint now) override;

    void HangUp(bool /*reported*/, TimePoint /*now*/) override {}

    /// Queues the stream lines that wait in a device which nobody has read from yet: somewhat more
    /// than a USB packet of 64 bytes.
    void FillBuffer(TimePoint now);

    void Receive(std::string_view bytes, TimePoint now) override;
    std::string NextText(TimePoint now) override;
    std::optional<TimePoint> NextDue() const override;

    /// Changes the mode and reports it, as "@MODE=" of the master's own accord.
    void SetMode(unsigned code, TimePoint now);
    unsigned Mode() const { return currentMode; }

    /// The gripper as it stands at `now`, to be changed.
    SimulatedGripper& Gripper(TimePoint now);
    const SimulatedGripper& Gripper() const { return gripper; }

    /// Process input data as the stream carries it: no bytes at all outside of operate.
    Bytes ProcessInput() const;

    /// A silent master and a mute one do not carry requests out; a mute one still streams.
    void SetSilent(bool on);
    void SetMute(bool on);

    /// As a mute one, but for requests with this key alone.
    void SetMuteFor(const std::string& key, bool on);
    void SetAnswerDelay(std::chrono::milliseconds delay) { answerDelay = delay; }

    /// Every request, or every one with this key, fails with this code. It need not be a number.
    void SetError(const std::string& code, const std::optional<std::string>& key);
    void ClearError(const std::optional<std::string>& key);

    void SendRaw(std::string text, TimePoint now) { answers.Push(std::move(text), now); }
    void SetPieceLength(std::size_t length) { answers.SetPieceLength(length); }
    void SetStreamRate(unsigned linesPerSecond, TimePoint now);
    void SetQueryEnd(QueryEnd end) { settings.queryEnd = end; }
    void SetReportProcessOutput(bool on) { settings.reportProcessOutput = on; }
    void SetId(std::string id) { settings.id = std::move(id); }
    void SetDeviceInfo(std::string numberList) { deviceInfo = std::move(numberList); }

    const MasterSettings& Settings() const { return settings; }
    const std::string& DeviceInfo() const { return deviceInfo; }

    /// The last 50 lines that came in, oldest first, whether they were requests or not.
    const std::deque<std::string>& RequestLines() const { return requestLines; }

    /// How many lines came in since the start; unplugging does not reset it.
    std::size_t RequestCount() const { return requestCount; }

private:
    /// What a request came to: a data line's value for a query, or an error.
    struct Outcome {
        ErrorCode error = ErrorCode::None;
        std::string value;
    };
    struct ModeStep {
        TimePoint due;
        unsigned code;
    };
    using Numbers = std::map<std::string, std::string, std::less<>>;

    void HandleLine(const std::string& line, TimePoint now);
    std::optional<std::string> InjectedError(const std::string& key) const;
    std::string Answer(const Request& request, TimePoint now);
    Outcome CarryOut(const Request& request, TimePoint now);
    Outcome Query(const std::string& key);
    Outcome Assign(const Request& request);
    ErrorCode AssignProcessOutput(const std::string& argument);
    ErrorCode AssignNumber(const std::string& key, const std::string& argument);
    ErrorCode Call(const Request& request, TimePoint now);
    ErrorCode CallFallback(const std::string& argument, TimePoint now);
    void Restart(TimePoint now);
    void Reset(TimePoint now);
    void ChangeMode(unsigned code, TimePoint now);
    void EnterMode(unsigned code, TimePoint now);
    bool TalksToGripper() const;
    std::string StreamLine() const;

    MasterSettings settings;
    SimulatedGripper gripper;
    std::string deviceInfo;
    Numbers numbers;        // DOUTINFO, ROBINPUT, ROBOUTPUT
    Numbers storedNumbers;  // as STORECONFIG() kept them
    unsigned currentMode = mode::kNone;
    std::deque<ModeStep> modeSteps;
    AnswerQueue answers;
    std::chrono::milliseconds answerDelay{0};
    TimePoint nextStreamLine;
    LineAssembler requestAssembler;
    std::deque<std::string> requestLines;
    std::size_t requestCount = 0;
    bool silent = false;
    bool mute = false;
    std::set<std::string> muteForKey;
    std::optional<std::string> errorForAll;
    std::map<std::string, std::string> errorForKey;
};

}  // namespace simulator
