#pragma once

#include <list>
#include <string>

#include "pellix/GripperManager.h"
#include "tests/support/FakeMaster.h"
#include "tests/support/LogCapture.h"

/// Plugs masters with grippers into the process's only GripperManager and unplugs them.
///
/// Captures the log lines of the process during its lifetime. Its destructor unplugs the remaining
/// masters.
class GripperCell {
public:
    GripperCell() = default;
    GripperCell(const GripperCell&) = delete;
    GripperCell& operator=(const GripperCell&) = delete;
    ~GripperCell();

    /// @return the GripperManager, which is never destroyed: its monitor thread runs until the
    ///         process ends
    static GripperManager& Manager();

    /// Plugs in a master with a gripper of `model` ("TLM", "HVA", "MZD-S" or "MZD-L") and the
    /// device string "<model> SN:<serial>". Returns when its link has no pending request. The
    /// process data are kPdin and kPdout; the source lists the parameters.
    support::FakeMaster& Plug(const std::string& model, const std::string& serial = "100001");

    /// Unplugs the master and destroys it.
    void Unplug(support::FakeMaster& master);

    support::LogCapture& Log() { return log; }

    static constexpr const char* kPdin = "[9,c4,0,a3]";
    static constexpr const char* kPdout = "[a,5]";

private:
    support::LogCapture log;
    std::list<support::FakeMaster> masters;
};

/// Makes the master answer the query of `key` with a data line but no FIN line. The data line
/// finishes the query; a FIN line could arrive late and finish the next request of that name.
void SetValue(support::FakeMaster& master, const std::string& key, const std::string& value);

/// Sends new process data and waits until the link with that device string has stored them. By
/// then, the link has handled all earlier lines of the master.
/// @param pdin must differ from the process data sent before
/// @return whether the link has stored them in time
bool ReportPdin(const support::FakeMaster& master, const std::string& device,
                const std::string& pdin);
