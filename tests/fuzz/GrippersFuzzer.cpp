// Fuzzes the gripper operations with device models of any length and content, and with any reply to
// their requests. No thread runs: each request is answered, or times out, while it is written.
//
// An input is: PDIN and PDOUT (a length and bytes each), device information (a length and numbers
// of four bytes), parameters (a length, then index, subindex and one byte of value each), then
// operations. An operation is its number in kOperations, two argument bytes, a limit of eight bytes
// for those that take one, and the reply (see AnsweringLink).

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "pellix/MZD.h"
#include "tests/fuzz/AnsweringLink.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/InputBytes.h"
#include "tests/support/SlowProtocol.h"

namespace {

using pellix::MZD;
using pellix::Pellix;
using Bytes = std::vector<std::uint8_t>;
using Numbers = std::vector<std::uint32_t>;

constexpr unsigned kMostOperations = 50;
constexpr unsigned kNothingSent = 12;
constexpr unsigned kBadPdout = 21;

struct Arguments {
    std::uint8_t first;
    std::uint8_t second;
};

// Second implementation of the operations.

void CheckPdout(AnsweringLink& link, unsigned (*operation)(Pellix&, std::uint8_t),
                std::uint8_t argument, const std::function<void(Bytes&)>& change) {
    Bytes expected = link.Pdout();
    const unsigned result = operation(link.Link(), argument);
    if (expected.size() != 2) {
        Require(result == kBadPdout, "output of another length is refused");
        link.RequireNothingSent();
        return;
    }
    change(expected);
    link.RequireSent("PDOUT=" + support::SlowFormat(expected) + "\n");
    link.RequireStatus(result);
}

/// @return bit `bit` of byte `number`; false for data of another length
bool PdinBit(const Bytes& pdin, std::size_t number, unsigned bit) {
    return pdin.size() == 4 && pdin[number] / (1U << bit) % 2 == 1;
}

unsigned PdinNibble(const Bytes& pdin, std::size_t number) {
    return pdin.size() == 4 ? pdin[number] % 16 : 0;
}

bool IsSameNumber(double left, double right) {
    return left == right || (std::isnan(left) && std::isnan(right));
}

/// @return bytes `first` and `first` + 1 of data that must be `size` bytes long
double Hundredths(const Bytes& bytes, std::size_t size) {
    if (bytes.size() != size) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    const int raw = bytes[0] * 256 + bytes[1];
    return (raw < 32768 ? raw : raw - 65536) / 100.0;
}

std::string Key(unsigned index, unsigned subindex) {
    return "PARAM[" + std::to_string(index) + "][" + std::to_string(subindex) + "]";
}

/// @return the value that the device model has stored after a read
Bytes ReadBytes(AnsweringLink& link, unsigned index, unsigned subindex) {
    link.RequireSent(Key(index, subindex) + "?\n");
    return link.Link().GetParameter(index, subindex);
}

unsigned ReadByte(AnsweringLink& link, unsigned index, unsigned subindex) {
    const Bytes value = ReadBytes(link, index, subindex);
    return value.size() == 1 ? value[0] : 0;
}

void CheckWritten(AnsweringLink& link, unsigned result, unsigned index, unsigned subindex,
                  const Bytes& value) {
    link.RequireSent(Key(index, subindex) + "=" + support::SlowFormat(value) + "\n");
    link.RequireStatus(result);
}

void CheckLimit(AnsweringLink& link, unsigned (*operation)(Pellix&, std::uint8_t, double),
                std::uint8_t set, unsigned subindex) {
    const auto value = link.input.Take<double>();
    const unsigned result = operation(link.Link(), set, value);
    if (std::isnan(value)) {
        Require(result == kNothingSent, "a NaN limit is not sent");
        link.RequireNothingSent();
        return;
    }
    const double scaled = std::fmin(std::fmax(value * 100 + 0.5, -32768), 32767);
    const int raw = (static_cast<int>(scaled) + 65536) % 65536;
    CheckWritten(link, result, 0x60U + set, subindex,
                 {static_cast<std::uint8_t>(raw / 256), static_cast<std::uint8_t>(raw % 256)});
}

void CheckModel(AnsweringLink& link, bool (*operation)(Pellix&),
                const std::vector<unsigned>& models) {
    bool isSupported = false;
    bool isOutOfRange = false;
    try {
        isSupported = operation(link.Link());
    } catch (const std::out_of_range&) {
        isOutOfRange = true;
    }
    link.RequireSent("DEVINFO?\n");
    const Numbers numbers = link.DeviceInfo();
    const bool isOurs = numbers.size() > 7 && numbers[7] == pellix::kCorvaneVendorId;
    Require(isOutOfRange == (isOurs && numbers.size() == 8), "a list without a model is an error");
    bool isExpected = false;
    for (const unsigned model : models) {
        isExpected = isExpected || (isOurs && numbers.size() > 8 && numbers[8] == model);
    }
    Require(isSupported == isExpected, "the model decides");
}

using Operation = void (*)(AnsweringLink&, Arguments);

constexpr auto kOperations = std::to_array<Operation>({
    [](AnsweringLink& link, Arguments arguments) {
        CheckPdout(link, MZD::Grip, arguments.first, [&](Bytes& pdout) {
            pdout = {static_cast<std::uint8_t>((pdout[0] | 0x03) & 0xFB), arguments.first};
        });
    },
    [](AnsweringLink& link, Arguments arguments) {
        CheckPdout(link, MZD::Release, arguments.first, [&](Bytes& pdout) {
            pdout = {static_cast<std::uint8_t>((pdout[0] | 0x02) & 0xFA), arguments.first};
        });
    },
    [](AnsweringLink& link, Arguments) {
        const auto operation = [](Pellix& target, std::uint8_t) { return MZD::Disable(target); };
        CheckPdout(link, operation, 0, [](Bytes& pdout) { pdout[0] &= 0xFD; });
    },
    [](AnsweringLink& link, Arguments) {
        const auto operation = [](Pellix& target, std::uint8_t) { return MZD::Enable(target); };
        CheckPdout(link, operation, 0, [](Bytes& pdout) { pdout[0] |= 0x02; });
    },
    [](AnsweringLink& link, Arguments) {
        const auto operation = [](Pellix& target, std::uint8_t) { return MZD::Reference(target); };
        CheckPdout(link, operation, 0, [](Bytes& pdout) { pdout[0] |= 0x06; });
    },
    [](AnsweringLink& link, Arguments arguments) {
        const auto operation = [](Pellix& target, std::uint8_t on) {
            return MZD::Holdfast(target, on % 2 == 1);
        };
        CheckPdout(link, operation, arguments.first, [&](Bytes& pdout) {
            pdout[0] = static_cast<std::uint8_t>((pdout[0] & 0xEF) + arguments.first % 2 * 0x10);
        });
    },
    [](AnsweringLink& link, Arguments arguments) {
        CheckPdout(link, MZD::SetLEDPreset, arguments.first, [&](Bytes& pdout) {
            pdout[0] = static_cast<std::uint8_t>(pdout[0] % 32 + arguments.first % 8 * 32);
        });
    },
    [](AnsweringLink& link, Arguments) {
        Require(IsSameNumber(MZD::GetPos(link.Link()), Hundredths(link.Pdin(), 4)), "position");
    },
    [](AnsweringLink& link, Arguments) {
        Pellix& master = link.Link();
        Require(static_cast<unsigned>(MZD::GetState(master)) == PdinNibble(link.Pdin(), 3),
                "state");
        Require(MZD::GetStatusNibble(master) == PdinNibble(link.Pdin(), 2), "status");
        Require(MZD::GetHoldfastStatus(master) == PdinBit(link.Pdin(), 2, 2), "holdfast status");
    },
    [](AnsweringLink& link, Arguments arguments) {
        Pellix& master = link.Link();
        const unsigned flag = arguments.first % 4;
        Require(MZD::GetFault(master) == PdinBit(link.Pdin(), 3, 4), "fault");
        Require(MZD::GetTempFault(master) == PdinBit(link.Pdin(), 3, 5), "temperature fault");
        Require(MZD::GetTempWarn(master) == PdinBit(link.Pdin(), 3, 6), "temperature warning");
        Require(MZD::GetMaintenance(master) == PdinBit(link.Pdin(), 3, 7), "maintenance");
        Require(MZD::GetStatusFlag(master, flag) == PdinBit(link.Pdin(), 2, flag + 4), "flag");
    },
    [](AnsweringLink& link, Arguments arguments) {
        const double limit = MZD::GetNoPartLimit(link.Link(), arguments.first);
        const Bytes value = ReadBytes(link, 0x60U + arguments.first, 1);
        Require(IsSameNumber(limit, Hundredths(value, 2)), "no-part limit");
    },
    [](AnsweringLink& link, Arguments arguments) {
        const double limit = MZD::GetReleaseLimit(link.Link(), arguments.first);
        const Bytes value = ReadBytes(link, 0x60U + arguments.first, 2);
        Require(IsSameNumber(limit, Hundredths(value, 2)), "release limit");
    },
    [](AnsweringLink& link, Arguments arguments) {
        const unsigned force = MZD::GetForce(link.Link(), arguments.first);
        Require(force == ReadByte(link, 0x60U + arguments.first, 3), "force");
    },
    [](AnsweringLink& link, Arguments) {
        const unsigned value = MZD::GetOverrideGrip(link.Link());
        Require(value == ReadByte(link, 0x40, 1), "grip override");
    },
    [](AnsweringLink& link, Arguments) {
        const unsigned value = MZD::GetOverrideRelease(link.Link());
        Require(value == ReadByte(link, 0x40, 2), "release override");
    },
    [](AnsweringLink& link, Arguments) {
        const bool direction = MZD::GetReferenceDirection(link.Link());
        Require(direction == (ReadByte(link, 0x40, 3) != 0), "reference direction");
    },
    [](AnsweringLink& link, Arguments) {
        const std::uint64_t checksum = MZD::GetParameterChecksum(link.Link());
        std::uint64_t expected = 0;
        const Bytes value = ReadBytes(link, 3, 4);
        for (std::size_t i = 4; value.size() == 4 && i > 0; --i) {
            expected = expected * 256 + value[i - 1];
        }
        Require(checksum == expected, "checksum");
    },
    [](AnsweringLink& link, Arguments arguments) {
        const unsigned value = MZD::GetLEDAnimation(link.Link(), arguments.first);
        Require(value == ReadByte(link, 0x80U + arguments.first, 1), "LED animation");
    },
    [](AnsweringLink& link, Arguments arguments) {
        const unsigned value = MZD::GetLEDColor(link.Link(), arguments.first);
        Require(value == ReadByte(link, 0x80U + arguments.first, 2), "LED color");
    },
    [](AnsweringLink& link, Arguments arguments) {
        const unsigned value = MZD::GetLEDSpeed(link.Link(), arguments.first);
        Require(value == ReadByte(link, 0x80U + arguments.first, 3), "LED speed");
    },
    [](AnsweringLink& link, Arguments arguments) {
        CheckLimit(link, MZD::SetNoPartLimit, arguments.first, 1);
    },
    [](AnsweringLink& link, Arguments arguments) {
        CheckLimit(link, MZD::SetReleaseLimit, arguments.first, 2);
    },
    [](AnsweringLink& link, Arguments arguments) {
        const unsigned result = MZD::SetForce(link.Link(), arguments.first, arguments.second);
        CheckWritten(link, result, 0x60U + arguments.first, 3, {arguments.second});
    },
    [](AnsweringLink& link, Arguments arguments) {
        const unsigned result = MZD::SetOverrideGrip(link.Link(), arguments.first);
        CheckWritten(link, result, 0x40, 1, {arguments.first});
    },
    [](AnsweringLink& link, Arguments arguments) {
        const unsigned result = MZD::SetOverrideRelease(link.Link(), arguments.first);
        CheckWritten(link, result, 0x40, 2, {arguments.first});
    },
    [](AnsweringLink& link, Arguments arguments) {
        const bool direction = arguments.first % 2 == 1;
        const unsigned result = MZD::SetReferenceDirection(link.Link(), direction);
        CheckWritten(link, result, 0x40, 3, {static_cast<std::uint8_t>(direction ? 0xFF : 0x00)});
    },
    [](AnsweringLink& link, Arguments) {
        CheckWritten(link, MZD::StoreRemanent(link.Link()), 2, 0, {0xE0});
    },
    [](AnsweringLink& link, Arguments arguments) {
        const unsigned result =
            MZD::SetLEDAnimation(link.Link(), arguments.first, arguments.second);
        CheckWritten(link, result, 0x80U + arguments.first, 1, {arguments.second});
    },
    [](AnsweringLink& link, Arguments arguments) {
        const unsigned result = MZD::SetLEDColor(link.Link(), arguments.first, arguments.second);
        CheckWritten(link, result, 0x80U + arguments.first, 2, {arguments.second});
    },
    [](AnsweringLink& link, Arguments arguments) {
        const unsigned result = MZD::SetLEDSpeed(link.Link(), arguments.first, arguments.second);
        CheckWritten(link, result, 0x80U + arguments.first, 3, {arguments.second});
    },
    [](AnsweringLink& link, Arguments) {
        CheckModel(link, pellix::HVA::IsSupported, {20, 40, 50});
    },
    [](AnsweringLink& link, Arguments) {
        CheckModel(link, MZD::IsSupported, {40, 50});
    },
});

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    InputBytes input(data, size);
    AnsweringLink link(input);
    for (unsigned i = 0; i < kMostOperations && !input.IsEmpty(); ++i) {
        const Operation operation = kOperations[input.Byte() % kOperations.size()];
        link.Begin();
        operation(link, input.Take<Arguments>());
    }
    return 0;
}
