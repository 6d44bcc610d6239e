#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Simple second implementation of what master input does to the active commands and the device
/// model. The fuzzer compares the library with it after every step.
class MasterInputModel {
public:
    struct Command {
        std::string name;
        int state;
        int status;
    };

    using Bytes = std::vector<std::uint8_t>;
    using Address = std::pair<std::uint32_t, std::uint32_t>;

    /// Makes one pass of the parser.
    /// @param read result of the read; nothing for a read error
    /// @return whether the pass throws
    bool Pass(const std::optional<std::string>& read);

    /// @return whether the next pass reads; it does not if an invalid line left others unhandled
    bool IsReading() const { return !linesLeft; }

    /// @return the oldest command of that name, or null
    Command* Find(const std::string& name);

    /// Lets all commands time out.
    void Expire();

    std::vector<Command> commands;  ///< oldest first
    bool plugged = true;            ///< the tty can be opened

    int mode = 0;
    Bytes pdin;
    Bytes pdout;
    std::vector<std::uint32_t> deviceInfo;
    std::map<Address, Bytes> parameters;
    std::string id;
    bool hasForgottenParameters = false;  ///< parameters were dropped at least once

private:
    std::string Take(const std::optional<std::string>& read);
    void Reopen();
    bool Handle(std::string line);
    bool HandleError(const std::string& line);
    void SetState(const std::string& name, int state);
    void HandleData(const std::string& key, const std::string& value);
    void StoreID(const std::string& value);
    void StoreMode(int newMode);
    void StoreDeviceInfo(const std::vector<std::uint32_t>& numbers);

    std::deque<std::string> lines;  // complete lines that are not handled yet
    bool linesLeft = false;
    bool open = true;
    bool reopenRequested = false;
    unsigned emptyReads = 0;
};
