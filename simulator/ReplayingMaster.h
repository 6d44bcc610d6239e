#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/Master.h"
#include "simulator/ReplayScript.h"
#include "simulator/TextTools.h"

namespace simulator {

/// A master that replays a recording: it waits for each recorded request, sends the recorded
/// answers, and sends unsolicited texts at the recorded distance from the request before them.
///
/// If a request comes early, the unsolicited texts before it are sent at once, but only the last
/// one with process data. A request other than the next recorded one is a deviation: it is
/// reported, answered with ERR and the code 99, and changes nothing else.
class ReplayingMaster final : public Master {
public:
    /// Of the answers: with the recorded delay or without.
    enum class Timing { AsRecorded, AtOnce };

    struct Context {
        std::size_t number = 0;  ///< of the master in the cell
        std::string recording;   ///< file name, for messages
        Printer print;
        /// Takes lines for the CommandInterpreter: the recorded unplugs, and the plugs that follow.
        /// Must not wait for their execution.
        std::function<void(const std::string& commands)> command;
    };

    ReplayingMaster(std::vector<ReplayStep> steps, Timing timing, Context context);

    /// The commands that plug it in for the first time.
    std::string FirstCommands() const { return PlugCommands(0, {}); }

    /// Continues after the next recorded plug.
    void PowerUp(TimePoint now) override;
    void HangUp(bool reported, TimePoint now) override;
    void Receive(std::string_view bytes, TimePoint now) override;
    std::string NextText(TimePoint now) override;
    std::optional<TimePoint> NextDue() const override;

    std::size_t RecordedRequestCount() const;
    std::size_t PlayedRequestCount() const { return playedRequests; }
    std::size_t DeviationCount() const { return deviations; }

private:
    std::string PlugCommands(std::size_t step, std::chrono::microseconds since) const;
    TimePoint DueOf(const ReplayStep& step) const;
    bool NextIsTimed() const;
    void PlayStep();
    void HandleLine(const std::string& line, TimePoint now);
    void Answer(std::size_t request, TimePoint now);
    void ReportDeviation(const std::string& line, std::size_t expected, TimePoint now);
    void Print(const std::string& text) const;
    std::string Describe(std::size_t step) const;

    std::vector<ReplayStep> steps;
    Timing timing;
    Context context;
    std::size_t next = 0;  // index of the next step
    TimePoint anchor;      // time of the last request or plug, which was recorded at anchorTime
    std::chrono::microseconds anchorTime{0};
    bool present = false;  // plugged in
    bool endPrinted = false;
    LineAssembler requests;
    AnswerQueue texts;
    std::size_t playedRequests = 0;
    std::size_t deviations = 0;
};

}  // namespace simulator
