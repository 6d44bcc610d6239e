#include "tests/fuzz/MasterInputModel.h"

#include <algorithm>
#include <stdexcept>

#include "tests/support/SlowProtocol.h"

namespace {

constexpr std::size_t kReadSize = 4096;
constexpr unsigned kEmptyReadsBeforeReopen = 10;
constexpr std::uint32_t kMostProcessDataBytes = 65536;

enum State : int { kAcknowledged = 2, kFinished = 3, kFailed = 4 };

bool IsDone(const MasterInputModel::Command& command) {
    return command.state == kFinished || command.state == kFailed;
}

/// @return the text before each line feed; the text after the last one is lost
std::deque<std::string> WholeLines(const std::string& text) {
    std::deque<std::string> lines;
    std::string line;
    for (const char c : text) {
        if (c == '\n') {
            lines.push_back(line);
            line.clear();
        } else {
            line += c;
        }
    }
    return lines;
}

/// @return the pieces of `text` between single `separator`s, followed by two empty ones
std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (c == separator) {
            pieces.emplace_back();
        } else {
            pieces.back() += c;
        }
    }
    pieces.resize(pieces.size() + 2);
    return pieces;
}

}  // namespace

bool MasterInputModel::Pass(const std::optional<std::string>& read) {
    if (!linesLeft) {
        lines = WholeLines(Take(read));
    }
    linesLeft = true;
    while (!lines.empty()) {
        const std::string line = lines.front();
        lines.pop_front();
        if (!Handle(line)) {
            return true;
        }
    }
    linesLeft = false;
    return false;
}

std::string MasterInputModel::Take(const std::optional<std::string>& read) {
    if (reopenRequested) {
        Reopen();
        if (reopenRequested) {
            return {};
        }
    }
    if (open && read) {
        std::string text = read->substr(0, std::min(kReadSize, read->find('\0')));
        if (!text.empty()) {
            emptyReads = 0;
            return text;
        }
    }
    if (++emptyReads > kEmptyReadsBeforeReopen) {
        emptyReads = 0;
        Reopen();
    }
    return {};
}

void MasterInputModel::Reopen() {
    open = plugged;
    reopenRequested = !plugged;
}

/// @return false if the line makes the pass throw
bool MasterInputModel::Handle(std::string line) {
    if (line.empty()) {
        return true;
    }
    const bool event = line[0] == '@';
    if (event) {
        line.erase(0, 1);
    }
    const std::string word = line.substr(0, 3);
    if (word == "ACK") {
        SetState(Split(line, ' ')[1], kAcknowledged);
    } else if (word == "FIN") {
        SetState(Split(line, ' ')[1], kFinished);
    } else if (word == "ERR") {
        return HandleError(line);
    } else {
        const std::vector<std::string> sides = Split(line, '=');
        HandleData(sides[0], sides[1]);
        if (!event) {
            SetState(sides[0], kFinished);
        }
    }
    return true;
}

bool MasterInputModel::HandleError(const std::string& line) {
    const std::vector<std::string> fields = Split(line, ' ');
    try {
        const int number = std::stoi(fields[2]);
        if (Command* const command = Find(fields[1])) {
            command->status = number;
            command->state = kFailed;
        }
        return true;
    } catch (const std::logic_error&) {  // not a number, or out of range
        return false;
    }
}

MasterInputModel::Command* MasterInputModel::Find(const std::string& name) {
    for (Command& command : commands) {
        if (command.name == name) {
            return &command;
        }
    }
    return nullptr;
}

void MasterInputModel::SetState(const std::string& name, int state) {
    if (Command* const command = Find(name)) {
        command->state = state;
    }
}

void MasterInputModel::Expire() {
    constexpr int kTimeout = 5;
    for (Command& command : commands) {
        if (!IsDone(command)) {
            command.state = kFailed;
            command.status = kTimeout;
        }
    }
}

void MasterInputModel::HandleData(const std::string& key, const std::string& value) {
    const auto bytes = support::SlowByteList(value);
    const auto numbers = support::SlowNumberList(value);
    const auto address = support::SlowParameterKey(key);
    if (key == "ID") {
        StoreID(value);
    } else if (key == "MODE") {
        StoreMode(support::SlowSigned(value));
    } else if (key == "PDIN" && bytes) {
        pdin = *bytes;
    } else if (key == "PDOUT" && bytes) {
        pdout = *bytes;
    } else if (key == "DEVINFO" && numbers) {
        StoreDeviceInfo(*numbers);
    } else if (address && bytes) {
        parameters[*address] = *bytes;
    }
}

void MasterInputModel::StoreID(const std::string& value) {
    id = value;
    if (id.size() > 1 && id.front() == '"' && id.back() == '"') {
        id = id.substr(1, id.size() - 2);
    }
}

void MasterInputModel::StoreMode(int newMode) {
    mode = newMode;
    if (mode != 4) {
        pdin.clear();
        pdout.clear();
    }
    if (mode == 1 || mode == 7) {
        hasForgottenParameters = hasForgottenParameters || !parameters.empty();
        deviceInfo.clear();
        parameters.clear();
    }
}

void MasterInputModel::StoreDeviceInfo(const std::vector<std::uint32_t>& numbers) {
    deviceInfo = numbers;
    const auto fill = [&](Bytes& bytes, std::size_t element) {
        const std::uint32_t length = numbers.size() > element ? numbers[element] / 8 : 0;
        if (bytes.empty() && length <= kMostProcessDataBytes) {
            bytes.resize(length);
        }
    };
    fill(pdin, 3);
    fill(pdout, 4);
}
