#include "pellix/CorvaneGripper.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "common/LogLine.h"
#include "pellix/GripperLayout.h"
#include "pellix/Protocol.h"

namespace pellix {

using namespace layout;

namespace {

/// Decodes signed 16-bit big-endian hundredths.
double DecodeHundredths(std::uint8_t high, std::uint8_t low) {
    return static_cast<std::int16_t>(high << 8 | low) / kScale;
}

// On purpose: adds 0.5 and truncates toward zero, as clients have always seen it (-2.0 gives -199).
// Clamps first, because casting a number out of range is undefined.
std::vector<std::uint8_t> EncodeHundredths(double value) {
    using Limits = std::numeric_limits<std::int16_t>;
    const double scaled = std::clamp<double>(value * kScale + 0.5, Limits::min(), Limits::max());
    const auto raw = static_cast<std::uint16_t>(static_cast<std::int16_t>(scaled));
    return {static_cast<std::uint8_t>(raw >> 8), static_cast<std::uint8_t>(raw & 0xFF)};
}

/// @return byte `number` of the process input data; 0 if they are not valid
std::uint8_t PdinByte(Pellix& link, std::size_t number) {
    const auto pdin = link.GetDevice().GetPDIN();
    return pdin.size() == kPdinLength ? pdin[number] : std::uint8_t{0};
}

bool PdinFlag(Pellix& link, std::uint8_t mask) {
    return (PdinByte(link, kStateByte) & mask) != 0;
}

/// @return the stored value after a read request, even if the request failed
std::vector<std::uint8_t> ReadValue(Pellix& link, ParameterAddress address) {
    link.ReadParameter(address.index, address.subindex);
    return link.GetParameter(address.index, address.subindex);
}

double ReadLimit(Pellix& link, std::uint8_t set, unsigned subindex) {
    const auto bytes = ReadValue(link, {kFirstSetIndex + set, subindex});
    return bytes.size() == 2 ? DecodeHundredths(bytes[0], bytes[1])
                             : std::numeric_limits<double>::quiet_NaN();
}

unsigned WriteLimit(Pellix& link, std::uint8_t set, unsigned subindex, double value) {
    if (std::isnan(value)) {
        return kResultNoCommand;
    }
    return link.WriteParameter(kFirstSetIndex + set, subindex, EncodeHundredths(value));
}

void LogModel(std::uint32_t model) {
    switch (model) {
        case kTlm:
            LogLine() << "TLM detected";
            break;
        case kHva:
            LogLine() << "HVA detected";
            break;
        case kMzdS:
            LogLine() << "MZD S detected";
            break;
        case kMzdL:
            LogLine() << "MZD L detected";
            break;
        default:
            break;
    }
}

}  // namespace

unsigned CorvaneGripper::SendPdout(Pellix& link, PdoutChange change, std::uint8_t argument) {
    auto pdout = link.GetDevice().GetPDOUT();
    if (pdout.size() != kPdoutLength) {
        return kResultBadPdout;
    }
    change(pdout, argument);
    return link.WritePDOUT(pdout);
}

unsigned CorvaneGripper::Grip(Pellix& link, std::uint8_t set) {
    return SendPdout(
        link,
        [](std::vector<std::uint8_t>& pdout, std::uint8_t number) {
            pdout[0] |= kDirectionGrip | kEnable;
            pdout[0] &= static_cast<std::uint8_t>(~kReferenceRun);
            pdout[1] = number;
        },
        set);
}

unsigned CorvaneGripper::Release(Pellix& link, std::uint8_t set) {
    return SendPdout(
        link,
        [](std::vector<std::uint8_t>& pdout, std::uint8_t number) {
            pdout[0] |= kEnable;
            pdout[0] &= static_cast<std::uint8_t>(~(kDirectionGrip | kReferenceRun));
            pdout[1] = number;
        },
        set);
}

unsigned CorvaneGripper::Disable(Pellix& link) {
    return SendPdout(link, [](std::vector<std::uint8_t>& pdout, std::uint8_t) {
        pdout[0] &= static_cast<std::uint8_t>(~kEnable);
    });
}

unsigned CorvaneGripper::Enable(Pellix& link) {
    return SendPdout(link,
                     [](std::vector<std::uint8_t>& pdout, std::uint8_t) { pdout[0] |= kEnable; });
}

double CorvaneGripper::GetPos(Pellix& link) {
    const auto pdin = link.GetDevice().GetPDIN();
    return pdin.size() == kPdinLength ? DecodeHundredths(pdin[0], pdin[1])
                                      : std::numeric_limits<double>::quiet_NaN();
}

int CorvaneGripper::GetState(Pellix& link) {
    return PdinByte(link, kStateByte) & kLowNibble;
}

bool CorvaneGripper::GetFault(Pellix& link) {
    return PdinFlag(link, kFault);
}

bool CorvaneGripper::GetTempFault(Pellix& link) {
    return PdinFlag(link, kTempFault);
}

bool CorvaneGripper::GetTempWarn(Pellix& link) {
    return PdinFlag(link, kTempWarn);
}

bool CorvaneGripper::GetMaintenance(Pellix& link) {
    return PdinFlag(link, kMaintenance);
}

std::uint8_t CorvaneGripper::GetStatusNibble(Pellix& link) {
    return PdinByte(link, kStatusByte) & kLowNibble;
}

bool CorvaneGripper::GetStatusFlag(Pellix& link, unsigned number) {
    return (PdinByte(link, kStatusByte) >> (number + kFirstStatusFlag) & 1) != 0;
}

double CorvaneGripper::GetNoPartLimit(Pellix& link, std::uint8_t set) {
    return ReadLimit(link, set, kNoPartLimitSubindex);
}

double CorvaneGripper::GetReleaseLimit(Pellix& link, std::uint8_t set) {
    return ReadLimit(link, set, kReleaseLimitSubindex);
}

unsigned CorvaneGripper::SetNoPartLimit(Pellix& link, std::uint8_t set, double value) {
    return WriteLimit(link, set, kNoPartLimitSubindex, value);
}

unsigned CorvaneGripper::SetReleaseLimit(Pellix& link, std::uint8_t set, double value) {
    return WriteLimit(link, set, kReleaseLimitSubindex, value);
}

std::uint8_t CorvaneGripper::GetOverrideGrip(Pellix& link) {
    return ReadByte(link, kOverrideGrip);
}

std::uint8_t CorvaneGripper::GetOverrideRelease(Pellix& link) {
    return ReadByte(link, kOverrideRelease);
}

std::uint32_t CorvaneGripper::GetParameterChecksum(Pellix& link) {
    const auto bytes = ReadValue(link, kChecksum);
    if (bytes.size() != 4) {
        return 0;
    }
    return bytes[0] | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
           std::uint32_t{bytes[3]} << 24;
}

unsigned CorvaneGripper::StoreRemanent(Pellix& link) {
    return WriteByte(link, kSystemCommand, kStoreCommand);
}

GripperModel CorvaneGripper::DetectModel(Pellix& link) {
    link.RequestDeviceInfo();
    const auto numbers = link.GetDevice().GetDeviceInfo();
    if (numbers.size() <= kVendorElement || numbers[kVendorElement] != kCorvaneVendorId) {
        return kUnknownModel;
    }
    const std::uint32_t model = numbers.at(kModelElement);
    LogModel(model);
    return static_cast<GripperModel>(model);
}

std::uint8_t CorvaneGripper::ReadByte(Pellix& link, ParameterAddress address) {
    const auto bytes = ReadValue(link, address);
    return bytes.size() == 1 ? bytes[0] : std::uint8_t{0};
}

unsigned CorvaneGripper::WriteByte(Pellix& link, ParameterAddress address, std::uint8_t value) {
    return link.WriteParameter(address.index, address.subindex, {value});
}

}  // namespace pellix
