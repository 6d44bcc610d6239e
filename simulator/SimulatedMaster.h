#pragma once

#include <array>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "simulator/Master.h"
#include "simulator/SimulatedGripper.h"

namespace simulator {

/// Data-link modes of an IO-Link port, as in "MODE" lines.
namespace mode {
constexpr unsigned kNone = 0;
constexpr unsigned kEstablishing = 1;
constexpr unsigned kStartup = 2;
constexpr unsigned kPreoperate = 3;
constexpr unsigned kOperate = 4;
constexpr unsigned kFallback = 5;
constexpr unsigned kPowerFault = 7;
constexpr unsigned kLargest = 255;  ///< codes above kPowerFault have no meaning
}  // namespace mode

/// The answer to a query: ACK, data line and FIN, or only the data line.
enum class QueryEnd { Finish, DataLine };

/// @throws UsageError if `text` is neither "fin" nor "data".
QueryEnd ParseQueryEnd(std::string_view text);

constexpr unsigned kLargestStreamRate = 10000;

struct MasterSettings {
    std::string id = "PELLIX";
    unsigned startMode = mode::kPreoperate;
    unsigned streamRate = 100;  ///< "@PDIN" lines per second; 0 for none
    QueryEnd queryEnd = QueryEnd::Finish;
    bool reportProcessOutput = true;  ///< answer an assignment of PDOUT with PDOUT
    std::size_t pieceLength = 0;      ///< of pieces of an answer; 0 for no splitting
};

/// A PELLIX master with a gripper on its port: answers requests and streams process data.
class SimulatedMaster final : public Master {
public:
    SimulatedMaster(const MasterSettings& settings, const GripperModel& model, const Bytes& product,
                    const Bytes& serial, TimePoint now);

    /// Plugs it in: start mode, stored settings, gripper as after a power failure.
    void PowerUp(TimePoint now) override;

    void HangUp(bool /*reported*/, TimePoint /*now*/) override {}

    /// Queues the stream lines that a device buffers before its first read: somewhat more than a
    /// USB packet of 64 bytes.
    void FillBuffer(TimePoint now);

    void Receive(std::string_view bytes, TimePoint now) override;
    std::string NextText(TimePoint now) override;
    std::optional<TimePoint> NextDue() const override;

    /// Changes the mode and reports it with an unsolicited "@MODE=".
    void SetMode(unsigned code, TimePoint now);
    unsigned Mode() const { return currentMode; }

    /// Advances the gripper to `now`.
    SimulatedGripper& Gripper(TimePoint now);
    const SimulatedGripper& Gripper() const { return gripper; }

    /// Process input data as in the stream: empty outside of operate.
    Bytes ProcessInput() const;

    /// A silent or mute master does not execute requests; a mute one still streams. With a key,
    /// only requests with this key are muted.
    void SetSilent(bool on);
    void SetMute(bool on, const std::optional<std::string>& key = std::nullopt);
    void SetAnswerDelay(std::chrono::milliseconds delay) { answerDelay = delay; }

    /// Lets every request, or every one with this key, fail with `code`, which may be any text.
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

    /// The last 50 received lines, oldest first, including those that are not requests.
    const std::deque<std::string>& RequestLines() const { return requestLines; }

    /// Number of received lines; not reset by unplugging.
    std::size_t RequestCount() const { return requestCount; }

private:
    /// The result of a request: the value for its data line, or an error or none.
    using Outcome = std::variant<std::string, ErrorCode>;
    struct ModeStep {
        TimePoint due;
        unsigned code;
    };
    using Numbers = std::map<std::string, std::string, std::less<>>;

    void HandleLine(const std::string& line, TimePoint now);
    std::optional<std::string> InjectedError(const std::string& key) const;
    std::string Answer(const Request& request, TimePoint now);
    Outcome Execute(const Request& request, TimePoint now);
    Outcome Query(const std::string& key) const;
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
    Numbers storedNumbers;  // by STORECONFIG()
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
