#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/AnswerQueue.h"
#include "simulator/LineAssembler.h"
#include "simulator/Master.h"
#include "simulator/ReplayScript.h"

namespace simulator {

/// A master that plays a recording: it waits for one recorded request after the other, gives the
/// recorded answers, and says in between what the recorded master said of its own accord, each at
/// the recorded distance from the request before it.
///
/// A request that comes early does not wait for what would be said before it: that is said at once,
/// but of process data only the last. Any other request than the next recorded one is a deviation:
/// it is told, answered by ERR with the code 99, and changes nothing else.
class ReplayingMaster final : public Master {
public:
    enum class Answers { AsRecorded, AtOnce };

    struct Surroundings {
        std::size_t number = 0;  ///< the master's in the cell
        std::string recording;   ///< the name of the file, for messages
        std::function<void(const std::string& text)> tell;
        /// Takes commands for the interpreter, each with its line end: the recorded unplugs, and
        /// the plugs that follow. Must not wait for them.
        std::function<void(const std::string& commands)> command;
    };

    ReplayingMaster(std::vector<ReplayStep> recordedSteps, Answers answers,
                    Surroundings initialSurroundings);

    /// The commands that plug it in for the first time.
    std::string FirstCommands() const { return PlugCommands(0, {}); }

    /// Goes on behind the next recorded plug.
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
    bool NextGoesByTime() const;
    void PlayStep();
    void HandleLine(const std::string& line, TimePoint now);
    void Answer(std::size_t request, TimePoint now);
    void Deviate(const std::string& line, std::size_t expected, TimePoint now);
    void Tell(const std::string& text) const;
    std::string Describe(std::size_t step) const;

    std::vector<ReplayStep> steps;
    Answers answerTimes;
    Surroundings surroundings;
    std::size_t next = 0;  // the step to be played
    TimePoint anchor;      // when the last request or plug came, which was recorded at anchorTime
    std::chrono::microseconds anchorTime{0};
    bool present = false;  // between a plug and what ends it
    bool endTold = false;
    LineAssembler requests;
    AnswerQueue texts;
    std::size_t playedRequests = 0;
    std::size_t deviations = 0;
};

}  // namespace simulator
