#include "simulator/SimulatedGripper.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace simulator {

namespace {

constexpr std::array<GripperModel, 4> kModels{{
    {"TLM", 10, 20.0, 80.0, false, false},
    {"HVA", 20, 30.0, 60.0, true, false},
    {"MZD-S", 40, 24.0, 80.0, true, true},
    {"MZD-L", 50, 48.0, 80.0, true, true},
}};

constexpr unsigned kGripBit = 0x01;
constexpr unsigned kEnableBit = 0x02;
constexpr unsigned kReferenceBit = 0x04;
constexpr unsigned kHoldfastBit = 0x10;
constexpr unsigned kPresetShift = 5;

constexpr unsigned kSetBase = 0x60;
constexpr unsigned kNoPartLimit = 1;
constexpr unsigned kReleaseLimit = 2;
constexpr unsigned kForce = 3;
constexpr unsigned kSetCount = 8;

constexpr unsigned kDriveIndex = 0x40;
constexpr unsigned kGripOverride = 1;
constexpr unsigned kReleaseOverride = 2;
constexpr unsigned kReferenceDirection = 3;

constexpr ParameterKey kChecksumKey{3, 4};
constexpr ParameterKey kSystemCommandKey{2, 0};
constexpr std::uint8_t kStoreCommand = 0xe0;

constexpr double kHundredthsPerMillimetre = 100.0;
constexpr double kReferenceSpeedFactor = 0.5;
constexpr double kPowerUpPosition = 10.0;
constexpr double kLimitMargin = 2.0;

Bytes TextBytes(std::string_view text) {
    return {text.begin(), text.end()};
}

Bytes HundredthsBytes(double millimetres) {
    const auto raw = static_cast<unsigned>(std::lround(millimetres * kHundredthsPerMillimetre));
    return {static_cast<std::uint8_t>(raw >> 8U & 0xffU), static_cast<std::uint8_t>(raw & 0xffU)};
}

Bytes LittleEndianBytes(std::uint32_t number) {
    Bytes bytes;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<std::uint8_t>(number >> shift & 0xffU));
    }
    return bytes;
}

}  // namespace

std::string ModelNames() {
    std::string names;
    for (const GripperModel& model : kModels) {
        const bool isLast = &model == &kModels.back();
        names += (names.empty() ? "" : isLast ? " or " : ", ") + std::string(model.name);
    }
    return names;
}

const GripperModel* FindGripperModel(std::string_view name) {
    const auto* const place = std::ranges::find(kModels, name, &GripperModel::name);
    return place == kModels.end() ? nullptr : place;
}

std::string_view StateName(GripperState state) {
    constexpr std::array<std::string_view, 9> kNames{"off",       "needs reference", "referencing",
                                                     "releasing", "released",        "gripping",
                                                     "holding",   "no part",         "ready"};
    return state == GripperState::Fault ? "fault" : kNames.at(static_cast<std::size_t>(state));
}

SimulatedGripper::SimulatedGripper(const GripperModel& model, const Bytes& product,
                                   const Bytes& serial, TimePoint now)
    : model(model), lastAdvance(now), speed(model.speed), position(kPowerUpPosition) {
    DefineParameters(product, serial);
    PowerUp(now);
}

void SimulatedGripper::DefineParameters(const Bytes& product, const Bytes& serial) {
    using Access = ParameterStore::Access;
    parameters.Define({16, 0}, TextBytes("Corvane"), Access::ReadOnly);
    parameters.Define({18, 0}, TextBytes(model.name), Access::ReadOnly);
    parameters.Define({19, 0}, product, Access::ReadOnly);
    parameters.Define({21, 0}, serial, Access::ReadOnly);
    parameters.Define(kChecksumKey, LittleEndianBytes(0), Access::ReadOnly);
    parameters.Define({kDriveIndex, kGripOverride}, {100}, Access::SameLength);
    parameters.Define({kDriveIndex, kReleaseOverride}, {100}, Access::SameLength);
    for (unsigned index = kSetBase; index < kSetBase + kSetCount; ++index) {
        parameters.Define({index, kNoPartLimit}, HundredthsBytes(kLimitMargin), Access::SameLength);
        parameters.Define({index, kReleaseLimit}, HundredthsBytes(model.stroke - kLimitMargin),
                          Access::SameLength);
        if (model.hasForceAndReference) {
            parameters.Define({index, kForce}, {50}, Access::SameLength);
        }
    }
    if (model.hasForceAndReference) {
        parameters.Define({kDriveIndex, kReferenceDirection}, {0}, Access::SameLength);
    }
    if (model.hasLedsAndHoldfast) {
        for (unsigned index = kFirstLedIndex; index < kFirstLedIndex + kLedCount; ++index) {
            for (unsigned setting = 1; setting <= kLedSettingCount; ++setting) {
                parameters.Define({index, setting}, {0}, Access::SameLength);
            }
        }
    }
}

void SimulatedGripper::PowerUp(TimePoint now) {
    Advance(now);
    parameters.PowerUp();
    UpdateChecksum();
    processOutput.assign(kProcessOutputLength, 0);
    referenced = !model.hasForceAndReference;
    referenceDone = false;
    tripped = Flag(GripperFlag::Fault) || Flag(GripperFlag::TemperatureFault);
    state = Move(0);
}

void SimulatedGripper::Advance(TimePoint now) {
    const double seconds = std::chrono::duration<double>(now - lastAdvance).count();
    lastAdvance = now;
    state = Move(seconds);
}

void SimulatedGripper::SetProcessOutput(const Bytes& twoBytes) {
    processOutput = twoBytes;
    tripped = Flag(GripperFlag::Fault) || Flag(GripperFlag::TemperatureFault);
    const bool stillRequested = OutputBit(kReferenceBit) && OutputBit(kEnableBit);
    referenceDone = referenceDone && stillRequested;
    state = Move(0);
}

GripperState SimulatedGripper::Move(double seconds) {
    if (Flag(GripperFlag::Fault) || Flag(GripperFlag::TemperatureFault)) {
        return GripperState::Fault;
    }
    const bool enabled = OutputBit(kEnableBit) && !tripped;
    if (enabled && OutputBit(kReferenceBit) && model.hasForceAndReference && !referenceDone) {
        return Reference(seconds);
    }
    if (!referenced) {
        return GripperState::NeedsReference;
    }
    if (!enabled) {
        const bool clamped = model.hasLedsAndHoldfast && OutputBit(kHoldfastBit) &&
                             state == GripperState::Holding && part == position;
        return clamped ? GripperState::Holding : GripperState::Off;
    }
    if (OutputBit(kReferenceBit)) {
        return GripperState::Ready;
    }
    return OutputBit(kGripBit) ? Grip(seconds) : Release(seconds);
}

GripperState SimulatedGripper::Reference(double seconds) {
    const bool inwards = ByteParameter({kDriveIndex, kReferenceDirection}, 0) != 0;
    const double endStop = inwards ? 0.0 : model.stroke;
    referenced = false;
    const bool partInTheWay = inwards && part && position >= *part;
    const bool arrived =
        MoveTo(partInTheWay ? *part : endStop, speed * kReferenceSpeedFactor * seconds);
    if (!arrived) {
        return GripperState::Referencing;
    }
    referenceDone = true;
    referenced = !partInTheWay;
    return referenced ? GripperState::Ready : GripperState::NeedsReference;
}

GripperState SimulatedGripper::Grip(double seconds) {
    const auto limit = Limit(kNoPartLimit);
    if (!limit) {
        return GripperState::Ready;
    }
    const bool partBetween = part && position >= *part && *part >= *limit;
    const double stop = partBetween ? *part : std::min(*limit, position);
    if (!MoveTo(stop, speed * OverrideFactor(kGripOverride) * seconds)) {
        return GripperState::Gripping;
    }
    return partBetween ? GripperState::Holding : GripperState::NoPart;
}

GripperState SimulatedGripper::Release(double seconds) {
    const auto limit = Limit(kReleaseLimit);
    if (!limit) {
        return GripperState::Ready;
    }
    const bool arrived = MoveTo(*limit, speed * OverrideFactor(kReleaseOverride) * seconds);
    return arrived ? GripperState::Released : GripperState::Releasing;
}

/// @return true if the fingers are at `target`.
bool SimulatedGripper::MoveTo(double target, double distance) {
    position += std::clamp(target - position, -distance, distance);
    // Corrects a rounding error, so that the comparison below is exact.
    constexpr double kRounding = 1e-9;
    if (std::abs(target - position) < kRounding) {
        position = target;
    }
    return position == target;
}

/// A limit of the parameter set that PDOUT selects, limited to the stroke; nothing if the set does
/// not exist.
std::optional<double> SimulatedGripper::Limit(unsigned subindex) const {
    const Bytes* const bytes = parameters.Find({kSetBase + processOutput[1], subindex});
    if (bytes == nullptr || bytes->size() != 2) {
        return std::nullopt;
    }
    const auto raw = static_cast<std::int16_t>(bytes->front() << 8U | bytes->back());
    return std::clamp(raw / kHundredthsPerMillimetre, 0.0, model.stroke);
}

double SimulatedGripper::OverrideFactor(unsigned subindex) const {
    constexpr unsigned kWhole = 100;
    return std::min(ByteParameter({kDriveIndex, subindex}, kWhole), kWhole) / double{kWhole};
}

unsigned SimulatedGripper::ByteParameter(ParameterKey key, unsigned fallback) const {
    const Bytes* const bytes = parameters.Find(key);
    return bytes != nullptr && bytes->size() == 1 ? bytes->front() : fallback;
}

Bytes SimulatedGripper::ProcessInput() const {
    Bytes bytes = HundredthsBytes(position);
    bytes.push_back(static_cast<std::uint8_t>(StatusByte()));
    bytes.push_back(static_cast<std::uint8_t>(FlagNibble() << 4U | static_cast<unsigned>(state)));
    return bytes;
}

/// Byte 2 of PDIN: referenced, moving, holdfast, enabled; the upper half is the motion's result.
unsigned SimulatedGripper::StatusByte() const {
    const bool moving = state == GripperState::Referencing || state == GripperState::Releasing ||
                        state == GripperState::Gripping;
    unsigned bits = 0;
    bits |= referenced ? 0x01U : 0U;
    bits |= moving ? 0x02U : 0U;
    bits |= model.hasLedsAndHoldfast && OutputBit(kHoldfastBit) ? 0x04U : 0U;
    bits |= OutputBit(kEnableBit) && !tripped ? 0x08U : 0U;
    bits |= state == GripperState::Released ? 0x10U : 0U;
    bits |= state == GripperState::NoPart ? 0x20U : 0U;
    bits |= state == GripperState::Holding ? 0x40U : 0U;
    bits |= state == GripperState::NeedsReference ? 0x80U : 0U;
    return bits;
}

unsigned SimulatedGripper::FlagNibble() const {
    unsigned bits = 0;
    for (std::size_t flag = 0; flag < flags.size(); ++flag) {
        bits |= flags[flag] ? 1U << flag : 0U;
    }
    return bits;
}

ErrorCode SimulatedGripper::WriteParameter(ParameterKey key, const Bytes& value) {
    if (key != kSystemCommandKey) {
        const ErrorCode result = parameters.Write(key, value);
        UpdateChecksum();
        return result;
    }
    if (value != Bytes{kStoreCommand}) {
        return ErrorCode::BadArgument;
    }
    parameters.StoreRemanent();
    return ErrorCode::None;
}

void SimulatedGripper::DefineParameter(ParameterKey key, const Bytes& value) {
    parameters.Define(key, value, ParameterStore::Access::AnyLength);
    checksumFixed = checksumFixed || key == kChecksumKey;
    UpdateChecksum();
}

void SimulatedGripper::UpdateChecksum() {
    if (!checksumFixed) {
        parameters.Define(kChecksumKey, LittleEndianBytes(parameters.Checksum()),
                          ParameterStore::Access::ReadOnly);
    }
}

void SimulatedGripper::SetFlag(GripperFlag flag, bool on) {
    flags[static_cast<std::size_t>(flag)] = on;
    tripped = tripped || Flag(GripperFlag::Fault) || Flag(GripperFlag::TemperatureFault);
    state = Move(0);
}

unsigned SimulatedGripper::LedPreset() const {
    return processOutput[0] >> kPresetShift;
}

}  // namespace simulator
