#include "simulator/PtyBus.h"

#include <stdexcept>

namespace simulator {

PtyBus::PtyBus(Testbed& testbed, PtyPort::Start ttyStart) : testbed(testbed), ttyStart(ttyStart) {}

std::unique_ptr<Port> PtyBus::CreatePort(std::size_t number, Station& /*station*/) {
    auto port = std::make_unique<PtyPort>(ttyStart);
    ttyPaths[number] = port->NodePath();
    return port;
}

void PtyBus::Attach(std::size_t number) {
    testbed.Plug(number, ttyPaths.at(number));
}

void PtyBus::PrepareHangUp(std::size_t number, bool /*reported*/) {
    testbed.RemoveNode(number);
}

void PtyBus::Detach(std::size_t number) {
    testbed.Unplug(number);
}

void PtyBus::SendEvent(std::size_t number, const std::string& action) {
    testbed.SendEvent(number, action);
}

void PtyBus::Reset(std::size_t /*number*/) {
    throw std::runtime_error("the master is not on USB: start pellix-sim with --usb");
}

bool PtyBus::StartsCooked() const {
    return ttyStart == PtyPort::Start::Cooked;
}

}  // namespace simulator
