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

/// Splits the master's input into lines. Status lines complete commands, data lines go to the
/// device model. Reopens the connection when the master has been silent for eleven reads.
///
/// Parser thread only; has no lock.
class InputParser {
public:
    /// The parameters outlive the parser.
    InputParser(Connection& connection, DeviceHandler& deviceHandler, CommandHandler& commands);

    /// Makes one pass: at most one read, then handles every complete line that it brought. Blocks
    /// as long as Connection::Read().
    /// @throws std::invalid_argument, std::out_of_range for an "ERR" line without a valid number;
    ///         the next pass continues with the line after it before it reads again
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
    std::size_t nextLine = 0;      // position of the next line in the stream's text
    std::string remainder;         // left by the previous pass
    std::uint32_t emptyReads = 0;  // consecutive reads without input
    std::uint32_t pdinCount = 0;   // "PDIN" lines since the last "PDIN active"
    bool reopenRequested = false;  // the last reopen failed; the next pass tries again
    bool linesLeft = false;        // an exception left lines of this input unhandled
};

}  // namespace pellix
