#include "bench/CellCommands.h"

#include <exception>
#include <limits>

#include "bench/CellOptions.h"
#include "bench/ProcessorTime.h"
#include "simulator/TextTools.h"

namespace bench {

using std::chrono::nanoseconds;

CellCommands::CellCommands(FastMasters& ownMasters, simulator::Testbed& ownTestbed)
    : masters(ownMasters), testbed(ownTestbed) {}

std::string CellCommands::Execute(std::string_view line) {
    try {
        const auto number = Answer(line);
        return number ? "ok " + std::to_string(*number) : "ok";
    } catch (const std::exception& error) {
        return "error: " + std::string(error.what());
    }
}

/// @return the number that follows the "ok"
std::optional<std::uint64_t> CellCommands::Answer(std::string_view line) {
    simulator::CommandWords words(line);
    const std::string name = words.Take();
    const auto takeLast = [&words] {
        std::string word = words.Take();
        words.End();
        return word;
    };
    const auto takeNumber = [&takeLast] {
        return simulator::ParseUnsigned(takeLast(), std::numeric_limits<unsigned>::max());
    };
    if (name == "rate") {
        masters.SetRate(ParseStreamRate(takeLast()));
        return std::nullopt;
    }
    if (name == "plug") {
        return Plug(takeNumber()).count();
    }
    if (name == "unplug") {
        return Unplug(takeNumber()).count();
    }
    if (name == "lines") {
        words.End();
        return masters.LinesSent();
    }
    if (name == "cpu") {
        words.End();
        return ProcessorTime().count();
    }
    throw simulator::UsageError("no such command: " + name);
}

nanoseconds CellCommands::Plug(std::size_t number) {
    testbed.Add(number, masters.Plug(number));
    return SendEvent(number, "add");
}

nanoseconds CellCommands::Unplug(std::size_t number) {
    testbed.RemoveNode(number);
    masters.Unplug(number);
    testbed.RemoveDevices(number);
    return SendEvent(number, "remove");
}

nanoseconds CellCommands::SendEvent(std::size_t number, const std::string& action) {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    testbed.SendEvent(number, action);
    return now;
}

}  // namespace bench
