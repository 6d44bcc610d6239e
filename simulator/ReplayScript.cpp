#include "simulator/ReplayScript.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "simulator/LineProtocol.h"

namespace simulator {

namespace {

using std::chrono::microseconds;

constexpr std::chrono::seconds kLongestAnswerTime{1};

/// A line from a master that may answer a request.
struct AnswerLine {
    enum class Form { Acknowledgement, Data, End };
    Form form;
    std::string key;
};

std::optional<AnswerLine> ParseAnswer(std::string_view line) {
    using Form = AnswerLine::Form;
    for (const auto& [word, form] : {std::pair("ACK ", Form::Acknowledgement),
                                     std::pair("FIN ", Form::End), std::pair("ERR ", Form::End)}) {
        if (line.starts_with(word)) {
            line.remove_prefix(std::string_view(word).size());
            return AnswerLine{form, std::string(line.substr(0, line.find(' ')))};
        }
    }
    const auto equals = line.find('=');
    if (equals == std::string_view::npos) {
        return std::nullopt;
    }
    return AnswerLine{Form::Data, std::string(line.substr(0, equals))};
}

/// Removes the first line from `rest`, or all of it if there is no line feed.
std::string TakeLine(std::string_view& rest) {
    const auto end = rest.find('\n');
    std::string line(rest.substr(0, end == std::string_view::npos ? end : end + 1));
    rest.remove_prefix(line.size());
    return line;
}

class ScriptBuilder {
public:
    void Add(const RecordedEvent& event) {
        if (event.kind == RecordedKind::ToMaster) {
            AddRequests(event);
        } else if (event.kind == RecordedKind::FromMaster) {
            AddTransfer(event);
        } else {
            AddPlugChange(event);
        }
    }

    /// Moves answers to their requests, and joins neighbouring lines of one transfer with one
    /// owner.
    std::vector<ReplayStep> Finish() {
        for (std::size_t place = 0; place < steps.size(); ++place) {
            ReplayStep& step = steps[place];
            if (step.kind != RecordedKind::FromMaster) {
                continue;
            }
            const bool joins = place > 0 && steps[place - 1].kind == RecordedKind::FromMaster &&
                               steps[place - 1].line == step.line &&
                               owners[place - 1] == owners[place];
            std::string text = std::exchange(step.bytes, {});
            if (!owners[place]) {
                step.bytes = joins ? std::exchange(steps[place - 1].bytes, {}) + text : text;
                continue;
            }
            ReplayStep& request = steps[*owners[place]];
            if (joins) {
                request.answers.back().text += text;
            } else {
                request.answers.push_back({step.time - request.time, std::move(text)});
            }
        }
        std::erase_if(steps, [](const ReplayStep& step) {
            return step.kind == RecordedKind::FromMaster && step.bytes.empty();
        });
        return std::move(steps);
    }

private:
    struct OpenRequest {
        std::string key;
        std::size_t step;
        bool acknowledged;
    };

    void Push(const RecordedEvent& event, std::string bytes) {
        steps.push_back({{event.time, event.master, event.kind, std::move(bytes), event.line}, {}});
        owners.emplace_back();
    }

    void AddPlugChange(const RecordedEvent& event) {
        requests.Clear();
        partialLine.clear();
        partialSteps.clear();
        openRequests.clear();
        Push(event, {});
    }

    void AddRequests(const RecordedEvent& event) {
        for (std::string& line : requests.Add(event.bytes)) {
            if (IsEcho(line)) {
                continue;
            }
            if (auto request = ParseRequest(line)) {
                openRequests.push_back({std::move(request->key), steps.size(), false});
            }
            Push(event, std::move(line));
        }
    }

    /// Adds a step per line; its owner is known only when the line is complete.
    void AddTransfer(const RecordedEvent& event) {
        for (std::string_view rest = event.bytes; !rest.empty();) {
            std::string text = TakeLine(rest);
            partialLine += text;
            partialSteps.push_back(steps.size());
            Push(event, std::move(text));
            if (!partialLine.ends_with('\n')) {
                return;
            }
            partialLine.pop_back();
            const auto owner = FindRequest(std::exchange(partialLine, {}), event.time);
            for (const std::size_t step : std::exchange(partialSteps, {})) {
                owners[step] = owner;
            }
        }
    }

    /// @return the step of the request that `line` answers
    std::optional<std::size_t> FindRequest(const std::string& line, microseconds time) {
        std::erase_if(openRequests, [this, time](const OpenRequest& request) {
            return time - steps[request.step].time > kLongestAnswerTime;
        });
        const auto answer = ParseAnswer(line);
        const auto request = std::ranges::find(openRequests, answer ? answer->key : std::string(),
                                               &OpenRequest::key);
        if (!answer || request == openRequests.end()) {
            return std::nullopt;
        }
        using Form = AnswerLine::Form;
        const std::size_t step = request->step;
        if (answer->form == Form::Acknowledgement) {
            request->acknowledged = true;
        } else if (answer->form == Form::End || !request->acknowledged) {
            openRequests.erase(request);
        }
        return step;
    }

    std::vector<ReplayStep> steps;
    std::vector<std::optional<std::size_t>> owners;  // by step: the request that it answers, if any
    LineAssembler requests;
    std::string partialLine;
    std::vector<std::size_t> partialSteps;  // that hold the partial line
    std::vector<OpenRequest> openRequests;  // oldest first
};

}  // namespace

std::vector<ReplayStep> BuildReplayScript(const std::vector<RecordedEvent>& events) {
    ScriptBuilder builder;
    for (const RecordedEvent& event : events) {
        builder.Add(event);
    }
    return builder.Finish();
}

bool IsEcho(std::string_view line) {
    return line.starts_with('@') || line.starts_with("ACK ") || line.starts_with("FIN ") ||
           line.starts_with("ERR ") || line.ends_with('\r');
}

bool IsProcessData(std::string_view text) {
    while (text.starts_with("@PDIN=") && text.find('\n') != std::string_view::npos) {
        text.remove_prefix(text.find('\n') + 1);
    }
    return text.empty();
}

}  // namespace simulator
