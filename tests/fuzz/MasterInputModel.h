#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// What master input is to do to the commands under way and to the device model, told once more in
/// the plainest way. The fuzzer compares the library with it after every step.
class MasterInputModel {
public:
    struct Command {
        std::string name;
        int state;
        int status;
    };

    using Bytes = std::vector<std::uint8_t>;
    using Address = std::pair<std::uint32_t, std::uint32_t>;

    /// One pass of the parser over what one read brings; nothing is a read error.
    /// @return whether the pass ends in an exception
    bool Pass(const std::optional<std::string>& read);

    /// Whether the next pass reads; it does not when a bad line came before the last of its read.
    bool IsReading() const { return !linesLeft; }

    /// The oldest command of that name, or null.
    Command* Find(const std::string& name);

    /// The time of all commands is over.
    void Expire();

    std::vector<Command> commands;  ///< oldest first
    bool plugged = true;            ///< the tty can be opened

    int mode = 0;
    Bytes pdin;
    Bytes pdout;
    std::vector<std::uint32_t> deviceInfo;
    std::map<Address, Bytes> parameters;
    std::string id;
    bool hasForgottenParameters = false;  ///< at least once

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

    std::deque<std::string> lines;  // whole ones that are still to be handled
    bool linesLeft = false;
    bool open = true;
    bool reopenRequested = false;
    unsigned emptyReads = 0;
};
