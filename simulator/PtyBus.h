#pragma once

#include <map>
#include <string>

#include "simulator/Bus.h"
#include "simulator/Pty.h"
#include "simulator/Testbed.h"

namespace simulator {

/// Plugs masters into pseudo-terminals of a testbed.
class PtyBus final : public Bus {
public:
    /// The testbed outlives the bus.
    PtyBus(Testbed& testbed, PtyPort::Start ttyStart);

    std::unique_ptr<Port> CreatePort(std::size_t number, Station& station) override;
    void Attach(std::size_t number) override;
    void PrepareHangUp(std::size_t number, bool reported) override;
    void Detach(std::size_t number) override;
    void SendEvent(std::size_t number, const std::string& action) override;
    void Reset(std::size_t number) override;
    bool StartsCooked() const override;

private:
    Testbed& testbed;
    PtyPort::Start ttyStart;
    std::map<std::size_t, std::string> ttyPaths;
};

}  // namespace simulator
