#pragma once

#include <cstdint>
#include <vector>

#include "pellix/Pellix.h"
#include "pellix/Protocol.h"

namespace pellix {

/// IO-Link vendor id that the grippers report in element 7 of their device information.
inline constexpr std::uint32_t kCorvaneVendorId = TAVRIK_CORVANE_VENDOR_ID;

/// IO-Link device ids of the models, in element 8 of their device information.
enum GripperModel : std::uint32_t {
    kUnknownModel = 0,
    kTlm = 10,
    kHva = 20,
    kMzdS = 40,
    kMzdL = 50,
};

/// Operations common to all grippers. All state is in the link's device model.
///
/// Any thread may call. Operations that send a request block as long as the link's requests do and
/// return their result.
///
/// PDOUT operations take the two bytes that the master last reported, change their own bits and
/// send both. If there are not two bytes, they send nothing and return kResultBadPdout. Two PDOUT
/// operations at once may start from the same stored bytes; the later one then wins.
class CorvaneGripper {
public:
    virtual ~CorvaneGripper() = default;

    /// Grip or release with parameter set `set`; 0 to 255, the gripper checks the number.
    static unsigned Grip(Pellix& link, std::uint8_t set);
    static unsigned Release(Pellix& link, std::uint8_t set);

    /// Switches the drive off; keeps direction and parameter set.
    static unsigned Disable(Pellix& link);

    /// Switches the drive on without a motion. Counterpart of Disable(); no method calls it.
    static unsigned Enable(Pellix& link);

    // The following decode the last process input data. They send nothing and do not block.

    /// @return position, raw value / 100; NaN without valid process data
    static double GetPos(Pellix& link);
    /// @return state code 0 to 15; 0 without valid process data
    static int GetState(Pellix& link);
    /// Flags; false without valid process data.
    static bool GetFault(Pellix& link);
    static bool GetTempFault(Pellix& link);
    static bool GetTempWarn(Pellix& link);
    static bool GetMaintenance(Pellix& link);
    /// Low half of the status byte, which MZD::GetHoldfastStatus() decodes.
    /// @return bits 0 to 3; 0 without valid process data
    static std::uint8_t GetStatusNibble(Pellix& link);
    /// High half of the status byte; no method returns it to clients.
    /// @return bit 4 + `number` (0 to 3); false without valid process data
    static bool GetStatusFlag(Pellix& link, unsigned number);

    // The following read parameters from the device. If that fails, they use the last stored value.

    /// @return limit of parameter set `set`, in the unit of the position; NaN if the value is not
    ///         two bytes long
    static double GetNoPartLimit(Pellix& link, std::uint8_t set);
    static double GetReleaseLimit(Pellix& link, std::uint8_t set);

    /// Send `value` as hundredths: value x 100 + 0.5, clamped to -32768 to 32767 and truncated
    /// toward zero. For NaN they send nothing and return kResultNoCommand.
    static unsigned SetNoPartLimit(Pellix& link, std::uint8_t set, double value);
    static unsigned SetReleaseLimit(Pellix& link, std::uint8_t set, double value);

    /// @return 0 if the value is not one byte long
    static std::uint8_t GetOverrideGrip(Pellix& link);
    static std::uint8_t GetOverrideRelease(Pellix& link);

    /// Little-endian on the wire.
    /// @return 0 if the value is not four bytes long
    static std::uint32_t GetParameterChecksum(Pellix& link);

    /// Asks the gripper to store its parameters.
    static unsigned StoreRemanent(Pellix& link);

protected:
    /// Requests the device information and logs the model that it names.
    /// @throws std::out_of_range if the list ends after the vendor id
    static GripperModel DetectModel(Pellix& link);

    /// Sends the stored PDOUT after `change` has been applied to its two bytes.
    using PdoutChange = void (*)(std::vector<std::uint8_t>& pdout, std::uint8_t argument);
    static unsigned SendPdout(Pellix& link, PdoutChange change, std::uint8_t argument = 0);

    /// Reads a parameter of one byte.
    /// @return 0 if the value is not one byte long
    static std::uint8_t ReadByte(Pellix& link, ParameterAddress address);
    static unsigned WriteByte(Pellix& link, ParameterAddress address, std::uint8_t value);
};

}  // namespace pellix
