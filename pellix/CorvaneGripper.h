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

/// Operations common to all grippers. They keep no state: all of it is in the link's device model.
///
/// Any thread may call. What sends a request blocks as long as the link's requests do, and returns
/// their result. Two PDOUT operations at once may start from the same stored bytes: the later
/// one wins.
///
/// PDOUT operations take the two bytes that the master last reported, change their own bits and
/// send both; kResultBadPdout, and nothing sent, when there are not two.
class CorvaneGripper {
public:
    virtual ~CorvaneGripper() = default;

    /// Grip or release with parameter set `set`.
    static unsigned Grip(Pellix& link, std::uint8_t set);
    static unsigned Release(Pellix& link, std::uint8_t set);

    /// Drive off; direction and parameter set stay.
    static unsigned Disable(Pellix& link);

    /// Drive on, and nothing else.
    static unsigned Enable(Pellix& link);

    // From the last process input data; nothing is sent.

    /// Position (raw value / 100); NaN while there is no valid process data.
    static double GetPos(Pellix& link);
    /// State code 0 to 15; 0 while there is no valid process data.
    static int GetState(Pellix& link);
    /// False while there is no valid process data.
    static bool GetFault(Pellix& link);
    static bool GetTempFault(Pellix& link);
    static bool GetTempWarn(Pellix& link);
    static bool GetMaintenance(Pellix& link);
    /// Bits 0 to 3 of the status byte; 0 while there is no valid process data.
    static std::uint8_t GetStatusNibble(Pellix& link);
    /// Bit 4 + `number` (0 to 3) of the status byte; false while there is no valid process data.
    static bool GetStatusFlag(Pellix& link, unsigned number);

    // Parameters are read from the device; when that fails the value stored before is used.

    /// Limits of parameter set `set`, in the unit of the position; NaN when the value is not two
    /// bytes long.
    static double GetNoPartLimit(Pellix& link, std::uint8_t set);
    static double GetReleaseLimit(Pellix& link, std::uint8_t set);

    /// Send `value` as hundredths: value x 100 + 0.5, cut to the range -32768 to 32767 and
    /// truncated toward zero. NaN is no limit: kResultNoCommand, and nothing is sent.
    static unsigned SetNoPartLimit(Pellix& link, std::uint8_t set, double value);
    static unsigned SetReleaseLimit(Pellix& link, std::uint8_t set, double value);

    /// 0 when the value is not one byte long.
    static std::uint8_t GetOverrideGrip(Pellix& link);
    static std::uint8_t GetOverrideRelease(Pellix& link);

    /// 0 when the value is not four bytes long.
    static std::uint32_t GetParameterChecksum(Pellix& link);

    /// Asks the gripper to store its parameters.
    static unsigned StoreRemanent(Pellix& link);

protected:
    /// Refreshes the device information and logs the model that it tells.
    /// @throws std::out_of_range when the list ends after the vendor id
    static GripperModel DetectModel(Pellix& link);

    /// Sends the stored PDOUT after `change` has been applied to its two bytes.
    using PdoutChange = void (*)(std::vector<std::uint8_t>& pdout, std::uint8_t argument);
    static unsigned SendPdout(Pellix& link, PdoutChange change, std::uint8_t argument = 0);

    /// Reads a parameter of one byte; 0 when it is not one byte long.
    static std::uint8_t ReadByte(Pellix& link, ParameterAddress address);
    static unsigned WriteByte(Pellix& link, ParameterAddress address, std::uint8_t value);
};

}  // namespace pellix
