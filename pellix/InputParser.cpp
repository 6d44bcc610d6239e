#include "pellix/InputParser.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <thread>
#include <utility>

#include "common/LogLine.h"
#include "pellix/CatchAll.h"
#include "pellix/CommandHandler.h"
#include "pellix/DeviceHandler.h"
#include "pellix/Protocol.h"

namespace pellix {

namespace {

constexpr std::chrono::milliseconds kIdlePause{4};
constexpr std::uint32_t kEmptyReadsBeforeReopen = 10;
constexpr std::uint32_t kPdinPerSignOfLife = 2500;

int State(const std::stringstream& stream) {
    return static_cast<int>(stream.rdstate());
}

void Pause() {
    std::this_thread::sleep_for(kIdlePause);
}

/// @return field `number` of a status line, whose fields are separated by single blanks; empty if
///         missing
std::string Field(std::string_view text, int number) {
    for (; number > 0; --number) {
        const std::size_t blank = text.find(' ');
        if (blank == std::string_view::npos) {
            return {};
        }
        text.remove_prefix(blank + 1);
    }
    return std::string(text.substr(0, text.find(' ')));
}

/// @return whether `text` begins with a line that is marked with "@" but is not a status line
bool IsEventDataLine(std::string_view text) {
    const std::string_view word = text.substr(0, 4);
    return word.starts_with('@') && word != "@ACK" && word != "@FIN" && word != "@ERR";
}

}  // namespace

InputParser::InputParser(Connection& connection, DeviceHandler& deviceHandler,
                         CommandHandler& commands)
    : connection(connection), deviceHandler(deviceHandler), commands(commands) {}

void InputParser::Parse() {
    if (linesLeft || ReadInput()) {
        HandleLines();
    }
}

/// @return whether there is input to split into lines
bool InputParser::ReadInput() {
    if (reopenRequested) {
        if (!TryReopen()) {
            Pause();
            return false;
        }
        reopenRequested = false;
    }
    const std::string data = connection.Read();
    if (data.empty()) {
        LogLine() << "Parser: No input data";
        if (++emptyReads <= kEmptyReadsBeforeReopen) {
            Pause();
            return false;
        }
        reopenRequested = !TryReopen();
        emptyReads = 0;
        if (reopenRequested) {
            Pause();
        }
        return false;
    }
    emptyReads = 0;
    return Append(data);
}

bool InputParser::TryReopen() {
    return !CatchAll([this] { connection.Reopen(); });
}

bool InputParser::Append(const std::string& data) {
    if (!inputStream.good()) {
        LogLine() << "Clearing previous input stream error: " << State(inputStream);
        inputStream.clear();
    }
    inputStream.str(std::string());  // frees the input already read, which a stream never does
    inputStream << remainder << data;
    if (!inputStream.good()) {
        LogLine() << "Error after adding input to stream: " << State(inputStream);
        LogLine() << "Trying to clear stream";
        inputStream.clear();
        inputStream.str(std::string());
        inputStream << remainder << data;
        if (!inputStream.good()) {
            LogLine() << "Failed to add input after clearing stream: " << State(inputStream)
                      << ". Creating new stream object.";
            inputStream = std::stringstream();
            return false;
        }
    }
    remainder.clear();
    return true;
}

/// Takes complete lines directly from the stream's text, which needs a quarter of the time of
/// std::getline(). The stream itself reads only the text after the last complete line.
void InputParser::HandleLines() {
    linesLeft = true;
    const std::string_view input = inputStream.view();
    std::size_t end = 0;
    while ((end = input.find('\n', nextLine)) != std::string_view::npos) {
        const std::string_view text = input.substr(nextLine, end - nextLine);
        nextLine = end + 1;
        if (text.empty()) {
            LogLine() << "Line length is 0 without eof";
            continue;
        }
        HandleLine(text);
    }
    linesLeft = false;
    const std::size_t rest = std::exchange(nextLine, 0);  // reset before anything can throw
    if (rest < input.size()) {
        inputStream.seekg(static_cast<std::streamoff>(rest));
        std::getline(inputStream, line);
        SettleStream();
    }
}

// On purpose: drops a last line without its line feed, because a master's lines are short and
// normally arrive whole. The stream stays at its end until the next input arrives.
void InputParser::SettleStream() {
    if (!inputStream.fail()) {  // tests the fail bit and the bad bit
        return;
    }
    if (inputStream.eof()) {
        if (!line.empty()) {
            LogLine() << "Keeping remaining string: " << line;
            remainder = line;
        }
        inputStream.clear();
    } else {
        LogLine() << "getline() failed";
    }
    if (inputStream.bad()) {
        LogLine() << "getline() put stream into bad state";
        inputStream.str(std::string());
    }
}

void InputParser::HandleLine(std::string_view text) {
    const bool eventLine = text.starts_with('@');
    if (eventLine) {
        text.remove_prefix(1);
    } else {
        LogLine() << "Parsing line: " << text;
    }
    const std::string_view word = text.substr(0, 3);
    if (word == "ACK") {
        const std::string name = Field(text, 1);
        LogLine() << "ACK"
                  << ":" << name;
        commands.OnAcknowledged(name);
    } else if (word == "FIN") {
        const std::string name = Field(text, 1);
        LogLine() << "FIN"
                  << ":" << name;
        commands.OnFinished(name);
        commands.AwaitRemoval(name);
    } else if (word == "ERR") {
        const std::string name = Field(text, 1);
        LogLine() << "ERR"
                  << ":" << name;
        commands.OnError(name, Field(text, 2));
        commands.AwaitRemoval(name);
    } else {
        HandleData(text, eventLine);
    }
}

// On purpose: the value ends at a second "=", because no valid value contains one.
void InputParser::HandleData(std::string_view text, bool eventLine) {
    const std::size_t equals = text.find('=');
    key = text.substr(0, equals);
    const std::string_view rest =
        equals == std::string_view::npos ? std::string_view() : text.substr(equals + 1);
    value = rest.substr(0, rest.find('='));

    if (key == kKeyPdin) {
        if (pdinCount > kPdinPerSignOfLife) {
            pdinCount = 0;
            LogLine() << "PDIN active";
        } else {
            ++pdinCount;
        }
    }
    deviceHandler.HandleResponse(key, value);
    if (!eventLine && !FinFollows()) {
        commands.OnFinished(key);
        commands.AwaitRemovalBeforeQuery(key);
    }
}

/// @return whether a FIN line for the same command follows this data line. The FIN alone must then
///         finish the command. If both did, the sender could remove the command in between, and
///         the FIN would finish a younger one of the same name: a refused assignment right after a
///         query of the same parameter would count as a success.
///
/// Skips data lines marked with "@", which the master sends unasked and which finish no command.
bool InputParser::FinFollows() {
    std::string_view rest = inputStream.view().substr(nextLine);
    while (IsEventDataLine(rest)) {
        rest.remove_prefix(std::min(rest.find('\n'), rest.size() - 1) + 1);
    }
    if (rest.starts_with('@')) {
        rest.remove_prefix(1);
    }
    return rest.starts_with("FIN ") && rest.substr(4).starts_with(key + '\n') &&
           commands.HasActive(key);
}

}  // namespace pellix
