#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <xmlrpc-c/base.hpp>

#include "client/Daemon.h"
#include "client/ProcessData.h"

namespace tavrik {

/// One gripper of a daemon. Device strings are the daemon's, unchanged.
class Gripper {
public:
    /// @param daemon must outlive the gripper
    Gripper(Daemon& daemon, std::string deviceString)
        : server(&daemon), device(std::move(deviceString)) {}

    /// The device string as it may be shown.
    std::string Name() const;
    const std::string& DeviceString() const { return device; }

    /// Calls a method with the device string and `arguments`.
    template <typename Result, typename... Arguments>
    Result Get(const std::string& method, const Arguments&... arguments) const {
        return server->Get<Result>(method, device, arguments...);
    }

    /// What the master sent last. Sends nothing to it.
    /// @throws Failure (NoGripper) when the daemon does not know the gripper any more
    ProcessData ReadProcessData() const;

    /// Whether the master answers a request: without that, the daemon goes on answering the
    /// process data and settings that it had last. Takes a second or more if it does not.
    bool MasterAnswers() const;

    /// Calls a method that answers a status. `rest` are the parameters behind the device string.
    int Command(const std::string& method, const xmlrpc_c::carray& rest) const;

    /// Calls a method that reads a setting. `rest` are the parameters behind the device string.
    /// @throws Failure (NoAnswer) when the answer came so late that it is not the gripper's
    xmlrpc_c::value ReadSetting(const std::string& method, const xmlrpc_c::carray& rest) const;

    /// The model, as far as methods answer differently: "MZD", "HVA or MZD", or "TLM?", which may
    /// also be a gripper whose force is set to 0. Only for a gripper with process data: asking
    /// for the model would make the daemon take missing ones for zeros.
    std::string Model() const;

    /// A status code in words. For status 3 the daemon is asked which of its reasons it was.
    std::string StatusText(int status) const;

    /// Waits until position and state have not changed for a while.
    /// @param before the process data before the command that is waited for
    /// @return the process data then
    /// @throws Failure (NotAtRest) when it takes longer than `limit`; (NoAnswer) when the values
    /// stand still because the master has fallen silent; (NoProcessData) when they may be missing,
    /// or were meanwhile: the motion may have been broken off
    ProcessData AwaitRest(const ProcessData& before, std::chrono::milliseconds limit) const;

private:
    xmlrpc_c::value Call(const std::string& method, const xmlrpc_c::carray& rest) const;

    Daemon* server;
    std::string device;
};

/// Reads a gripper's process data again and again without flooding the daemon's log: while there
/// are none, GetPDINExcerpt logs a line each time, so it is called once a second then.
class ProcessDataReader {
public:
    /// @param gripper must outlive the reader
    explicit ProcessDataReader(const Gripper& gripper) : source(gripper) {}

    /// What the master sent last. While that is all zero, a change of the flags alone is seen up
    /// to a second late.
    /// @throws Failure (NoGripper), as Gripper::ReadProcessData()
    ProcessData Read();

private:
    bool StillZero() const;

    const Gripper& source;
    ProcessData last{0};
    std::chrono::steady_clock::time_point lastExcerpt{};
};

}  // namespace tavrik
