#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <xmlrpc-c/base.hpp>

#include "client/Daemon.h"
#include "client/ProcessData.h"

namespace tavrik {

/// One gripper of a daemon. Device strings are the daemon's, unchanged. One thread at a time, as
/// the Daemon. Methods that call the daemon may throw Failure (NoDaemon, BadAnswer).
class Gripper {
public:
    /// @param daemon must outlive the gripper
    Gripper(Daemon& daemon, std::string deviceString)
        : daemon(daemon), deviceString(std::move(deviceString)) {}

    /// The device string in printable form.
    std::string Name() const;
    const std::string& DeviceString() const { return deviceString; }

    /// Calls a method with the device string and `arguments`.
    template <typename Result, typename... Arguments>
    Result Get(const std::string& method, const Arguments&... arguments) const {
        return daemon.Get<Result>(method, deviceString, arguments...);
    }

    /// What the master sent last. Sends nothing to it.
    /// @throws Failure (NoGripper) when the daemon no longer knows the gripper
    ProcessData ReadProcessData() const;

    /// Whether the daemon lists it. Waits while the daemon's list is locked; other calls then
    /// return -1 or status 3.
    bool IsListed() const;

    /// Whether the master answers a request. If it does not, this takes a second or more, and the
    /// daemon keeps returning the last process data and settings.
    bool MasterAnswers() const;

    /// Calls a method that returns a status.
    /// @param arguments the parameters after the device string
    int Command(const std::string& method, const xmlrpc_c::carray& arguments) const;

    /// Calls a method that reads a setting.
    /// @param arguments the parameters after the device string
    /// @throws Failure (NoAnswer) when the reply came so late that it is not the gripper's
    xmlrpc_c::value ReadSetting(const std::string& method, const xmlrpc_c::carray& arguments) const;

    /// The model, as far as methods answer differently: "MZD", "HVA or MZD", or "TLM?", which may
    /// also be a gripper whose force is set to 0. Only for a gripper with process data: otherwise
    /// asking for the model would make the daemon treat missing process data as zeros.
    std::string Model() const;

    /// The name and a status code of `method` in words. For status 3, asks the daemon for the
    /// reason, and the gripper for its model if it matters.
    std::string StatusText(int status, const std::string& method) const;

    /// Why `method` has returned status 3, in words.
    std::string WhyNotPossible(const std::string& method) const;

private:
    xmlrpc_c::value Call(const std::string& method, const xmlrpc_c::carray& arguments) const;

    Daemon& daemon;
    std::string deviceString;
};

/// Polls a gripper's process data without flooding the daemon's log: while there is none,
/// GetPDINExcerpt logs a line at each call, so it is called once a second then.
class ProcessDataReader {
public:
    /// @param gripper must outlive the reader
    explicit ProcessDataReader(const Gripper& gripper) : gripper(gripper) {}

    /// What the master sent last. While that is all zero, a change of the flags alone is seen up
    /// to a second late.
    /// @throws Failure (NoGripper), as Gripper::ReadProcessData()
    ProcessData Read();

private:
    bool IsStillZero() const;

    const Gripper& gripper;
    ProcessData last{0};
    std::chrono::steady_clock::time_point lastExcerpt{};
};

}  // namespace tavrik
