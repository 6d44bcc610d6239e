#include "pellix/HVA.h"

#include "pellix/GripperLayout.h"

namespace pellix {

using namespace layout;

bool HVA::IsSupported(Pellix& link) {
    const GripperModel model = DetectModel(link);
    return model == kHva || model == kMzdS || model == kMzdL;
}

unsigned HVA::Reference(Pellix& link) {
    return SendPdout(link, [](std::vector<std::uint8_t>& pdout, std::uint8_t) {
        pdout[0] |= kEnable | kReferenceRun;
    });
}

std::uint8_t HVA::GetForce(Pellix& link, std::uint8_t set) {
    return ReadByte(link, {kFirstSetIndex + set, kForceSubindex});
}

unsigned HVA::SetForce(Pellix& link, std::uint8_t set, std::uint8_t force) {
    return WriteByte(link, {kFirstSetIndex + set, kForceSubindex}, force);
}

unsigned HVA::SetOverrideGrip(Pellix& link, std::uint8_t value) {
    return WriteByte(link, kOverrideGrip, value);
}

unsigned HVA::SetOverrideRelease(Pellix& link, std::uint8_t value) {
    return WriteByte(link, kOverrideRelease, value);
}

bool HVA::GetReferenceDirection(Pellix& link) {
    return ReadByte(link, kReferenceDirection) != 0;
}

unsigned HVA::SetReferenceDirection(Pellix& link, bool direction) {
    return WriteByte(link, kReferenceDirection, direction ? kTrue : kFalse);
}

}  // namespace pellix
