#include "doctor/DaemonLog.h"

#include <algorithm>
#include <sstream>

#include "doctor/ToolOutput.h"

namespace tavrik {

namespace {

/// The rest of `text` behind `prefix`; nothing if it begins otherwise.
std::optional<std::string> Behind(const std::string& prefix, const std::string& text) {
    return text.starts_with(prefix) ? std::optional(text.substr(prefix.size())) : std::nullopt;
}

std::string WithoutQuotes(std::string text) {
    std::erase(text, '"');
    return text;
}

std::vector<std::string> LinesInReverse(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    std::reverse(lines.begin(), lines.end());
    return lines;
}

}  // namespace

DaemonLog::DaemonLog(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        std::istringstream words(line);
        std::string time;
        std::string thread;
        std::string message;
        if (words >> time >> thread && std::getline(words >> std::ws, message)) {
            Take(thread, message);
        }
    }
}

DaemonLog DaemonLog::OfProcess(pid_t daemon) {
    constexpr const char* kWanted =
        "--grep=Opening device|Parser thread active|Setting device mode|line: ID=|"
        "Failed to (initialize|open)|PELLIX removed";
    // The newest first, because a log of days takes longer.
    constexpr std::chrono::seconds kPatience(5);
    const ToolOutput output =
        RunTool({"journalctl", "--boot", "--no-pager", "--output=cat", "--reverse", "--lines=2000",
                 "--case-sensitive=true", kWanted, "_PID=" + std::to_string(daemon)},
                kPatience);
    return DaemonLog(LinesInReverse(output.text));
}

void DaemonLog::Take(const std::string& thread, const std::string& message) {
    LoggedMaster* const master = MasterOf(thread);
    if (const auto node = Behind("SerialConnection: Opening device ", message)) {
        openedNode = *node;
        threadNodes[thread] = *node;
        masters[*node].failure.clear();
    } else if (message == "Parser thread active" && !openedNode.empty()) {
        // It belongs to the tty opened before: masters are set up one after the other.
        threadNodes[thread] = openedNode;
        masters[openedNode] = {};
    } else if (const auto gone = Behind("PELLIX removed: ", message)) {
        masters.erase(*gone);
    } else if (master == nullptr) {
        return;
    } else if (const auto id = Behind("Parsing line: ID=", message)) {
        master->id = WithoutQuotes(*id);
    } else if (const auto mode = Behind("Setting device mode to ", message)) {
        int number = 0;
        if (std::istringstream(*mode) >> number) {
            master->mode = number;
        }
    } else if (message.starts_with("Failed to initialize") ||
               message.starts_with("Failed to open")) {
        master->failure = message;
    }
}

LoggedMaster* DaemonLog::MasterOf(const std::string& thread) {
    const auto node = threadNodes.find(thread);
    const auto found = node == threadNodes.end() ? masters.end() : masters.find(node->second);
    return found == masters.end() ? nullptr : &found->second;
}

const LoggedMaster* DaemonLog::Find(const std::string& node) const {
    const auto found = masters.find(node);
    return found == masters.end() ? nullptr : &found->second;
}

}  // namespace tavrik
