#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "simulator/ParameterStore.h"

namespace simulator {

/// Positions and lengths in millimetres.
struct GripperModel {
    std::string_view name;
    unsigned deviceId;
    double stroke;              ///< position of the outer end stop; the inner one is at 0
    double speed;               ///< mm/s at an override of 100 %
    bool hasForceAndReference;  ///< also a reference direction
    bool hasLedsAndHoldfast;
};

/// @return null if `name` is not "TLM", "HVA", "MZD-S" or "MZD-L".
const GripperModel* FindGripperModel(std::string_view name);

/// The names of all models, as in "TLM, HVA or MZD-S".
std::string ModelNames();

/// The low nibble of the last PDIN byte.
enum class GripperState : unsigned {
    Off = 0,
    NeedsReference = 1,
    Referencing = 2,
    Releasing = 3,
    Released = 4,
    Gripping = 5,
    Holding = 6,
    NoPart = 7,
    Ready = 8,
    Fault = 15,
};

std::string_view StateName(GripperState state);

/// The high nibble of the last PDIN byte, lowest bit first.
enum class GripperFlag : std::size_t { Fault, TemperatureFault, TemperatureWarning, Maintenance };
constexpr std::array<std::string_view, 4> kGripperFlagNames{"fault", "temp-fault", "temp-warn",
                                                            "maintenance"};

constexpr unsigned kFirstLedIndex = 0x80;
constexpr unsigned kLedCount = 8;
constexpr unsigned kLedSettingCount = 3;  ///< animation, colour and speed: subindex 1 to 3

/// A gripper with two fingers: its drive, its end stops, its parameters and its process data.
///
/// The position is the width between the fingers in millimetres; gripping reduces it. Time passes
/// only in Advance(): call it before every change.
class SimulatedGripper {
public:
    /// @param product,serial values of the parameters 19/0 and 21/0
    SimulatedGripper(const GripperModel& model, const Bytes& product, const Bytes& serial,
                     TimePoint now);

    /// Power cycle: drive off, not referenced, parameters as stored.
    void PowerUp(TimePoint now);
    void Advance(TimePoint now);

    const GripperModel& Model() const { return model; }
    double Position() const { return position; }
    GripperState State() const { return state; }

    void SetSpeed(double millimetresPerSecond) { speed = millimetresPerSecond; }

    static constexpr std::size_t kProcessOutputLength = 2;
    void SetProcessOutput(const Bytes& twoBytes);
    const Bytes& ProcessOutput() const { return processOutput; }
    Bytes ProcessInput() const;

    ErrorCode WriteParameter(ParameterKey key, const Bytes& value);

    /// Sets any parameter to a value of any length. A checksum that is set here no longer changes.
    void DefineParameter(ParameterKey key, const Bytes& value);
    const ParameterStore& Parameters() const { return parameters; }

    /// Places a part between the fingers. If it is wider than the gap, it is gripped only after the
    /// fingers have opened.
    void SetPart(std::optional<double> width) { part = width; }
    std::optional<double> Part() const { return part; }

    /// The faults stop the drive until they are cleared and PDOUT is assigned again.
    void SetFlag(GripperFlag flag, bool on);
    bool Flag(GripperFlag flag) const { return flags[static_cast<std::size_t>(flag)]; }

    unsigned LedPreset() const;

private:
    void DefineParameters(const Bytes& product, const Bytes& serial);
    GripperState Move(double seconds);
    GripperState Reference(double seconds);
    GripperState Grip(double seconds);
    GripperState Release(double seconds);
    bool MoveTo(double target, double distance);
    std::optional<double> Limit(unsigned subindex) const;
    double OverrideFactor(unsigned subindex) const;
    unsigned ByteParameter(ParameterKey key, unsigned fallback) const;
    void UpdateChecksum();
    bool OutputBit(unsigned mask) const { return (processOutput[0] & mask) != 0; }
    unsigned StatusByte() const;
    unsigned FlagNibble() const;

    const GripperModel& model;
    ParameterStore parameters;
    Bytes processOutput = Bytes(kProcessOutputLength);
    TimePoint lastAdvance;
    GripperState state = GripperState::Off;
    double speed;
    double position;
    std::optional<double> part;
    bool checksumFixed = false;
    bool referenced = false;
    bool referenceDone = false;  // for the request in PDOUT
    bool tripped = false;        // by a fault, until PDOUT is assigned again
    std::array<bool, kGripperFlagNames.size()> flags{};
};

}  // namespace simulator
