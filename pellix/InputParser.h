#pragma once

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

#include "pellix/Connection.h"

namespace pellix {

class CommandHandler;
class DeviceHandler;

/// Cuts the master's input into lines: status lines complete commands, data lines go to the device
/// model. Reopens the connection of a master that has gone silent.
///
/// Parser thread only; needs no lock.
class InputParser {
public:
    /// All three outlive the parser.
    InputParser(Connection& input, DeviceHandler& model, CommandHandler& handler);

    /// One pass: at most one read, then every complete line that it made available.
    /// @throws std::invalid_argument, std::out_of_range for an "ERR" line without a usable number;
    ///         the next pass goes on with the line after it before it reads again
    void Parse();

private:
    bool ReadInput();
    bool TryReopen();
    bool Append(const std::string& data);
    void HandleLines();
    void SettleStream();
    void HandleLine(std::string_view text);
    void HandleData(std::string_view text, bool eventLine);
    bool FinFollows();

    Connection& connection;
    DeviceHandler& deviceHandler;
    CommandHandler& commands;

    std::stringstream inputStream;
    std::string line;
    std::string key;
    std::string value;
    std::size_t nextLine = 0;  // where in the stream's text the next line begins
    std::string remainder;     // kept from the pass before
    std::uint32_t emptyReads = 0;
    std::uint32_t pdinCount = 0;  // "PDIN" lines since the last sign of life
    bool reopenRequested = false;
    bool linesLeft = false;  // an exception left lines of this input unhandled
};

}  // namespace pellix
