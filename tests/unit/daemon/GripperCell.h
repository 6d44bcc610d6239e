#pragma once

#include <list>
#include <string>

#include "pellix/GripperManager.h"
#include "tests/support/FakeMaster.h"
#include "tests/support/LogCapture.h"

/// Masters with grippers that come and go at the one GripperManager of this process.
///
/// It takes the log lines of the process for its scope. Masters that are still there at its end
/// are unplugged.
class GripperCell {
public:
    GripperCell() = default;
    GripperCell(const GripperCell&) = delete;
    GripperCell& operator=(const GripperCell&) = delete;
    ~GripperCell();

    /// Never destroyed: its monitor thread goes on until the process has ended.
    static GripperManager& Manager();

    /// A master with a gripper of `model` ("TLM", "HVA", "MZD-S" or "MZD-L"), ready to be called
    /// as "<model> SN:<serial>": its process data are kPdin and kPdout, the parameters as in the
    /// source, and no request of its link is under way.
    support::FakeMaster& Plug(const std::string& model, const std::string& serial = "100001");

    /// Takes the master away; the reference becomes invalid.
    void Unplug(support::FakeMaster& master);

    support::LogCapture& Log() { return log; }

    static constexpr const char* kPdin = "[9,c4,0,a3]";
    static constexpr const char* kPdout = "[a,5]";

private:
    support::LogCapture log;
    std::list<support::FakeMaster> masters;
};

/// The query of `key` is answered by the data line alone, which ends it: a finish after it could
/// come late and end the next request of that name.
void SetValue(support::FakeMaster& master, const std::string& key, const std::string& value);

/// Sends `pdin`, another than before, as a master's cyclic process data, and waits until the link
/// with that device string has it: all lines that the master sent before are handled by then.
/// @return whether it came in time
bool ReportPdin(const support::FakeMaster& master, const std::string& device,
                const std::string& pdin);
