#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Texts and encodings of the PELLIX line protocol. Pure functions; any thread may call.
namespace pellix {

/// Results of link requests. Any other number is the master's own error code.
enum Result : unsigned {
    kResultOk = 0,
    kResultTimeout = 5,     ///< the master did not finish the command in time
    kResultNoCommand = 12,  ///< nothing could be sent
    kResultBadPdout = 21,   ///< the stored PDOUT is not two bytes long; nothing was sent
};

/// IO-Link data-link modes as the master codes them.
enum Mode : int {
    kModeNone = 0,
    kModeEstablishCommunication = 1,
    kModeStartup = 2,
    kModePreoperate = 3,
    kModeOperate = 4,  ///< the only mode in which process data is valid
    kModeFallback = 5,
    kModeBlockMode = 6,
    kModePowerFault = 7,
};

inline constexpr std::string_view kKeyId = "ID";
inline constexpr std::string_view kKeyMode = "MODE";
inline constexpr std::string_view kKeyDeviceInfo = "DEVINFO";
inline constexpr std::string_view kKeyPdin = "PDIN";
inline constexpr std::string_view kKeyPdout = "PDOUT";
inline constexpr std::string_view kKeyParameter = "PARAM";
inline constexpr std::string_view kKeyDoutInfo = "DOUTINFO";
inline constexpr std::string_view kKeyRobInput = "ROBINPUT";
inline constexpr std::string_view kKeyRobOutput = "ROBOUTPUT";
inline constexpr std::string_view kKeyStoreConfig = "STORECONFIG";
inline constexpr std::string_view kKeySysReset = "SYSRESET";
inline constexpr std::string_view kKeyOperate = "OPERATE";
inline constexpr std::string_view kKeyRestart = "RESTART";
inline constexpr std::string_view kKeyFallback = "FALLBACK";

/// ISDU address of a parameter.
struct ParameterAddress {
    unsigned index;
    unsigned subindex;
};

inline constexpr ParameterAddress kProductId{19, 0};
inline constexpr ParameterAddress kSerialNumber{21, 0};

/// @return "DL_OPERATE" and so on; "[unknown]" for a code that is not a Mode
std::string ModeName(int mode);

/// @return for example "[a,ff]": lower-case hexadecimal without leading zeros; "[]" for no bytes
std::string FormatByteList(const std::vector<std::uint8_t>& bytes);

/// @return for example "PARAM[19][0]"
std::string FormatParameterKey(ParameterAddress address);

/// Skips leading blanks. Base 16 accepts either case and the prefix "0x".
/// @param base 10 or 16
/// @return the number at the start of `text` modulo 2^32; 0 if there is none
std::uint32_t ReadUnsigned(std::string_view text, unsigned base);

/// @return the signed decimal number at the start of `text`, clamped to the range of int; 0 if
///         there is none
int ReadSigned(std::string_view text);

/// Reads the hexadecimal list that begins with "[" and ends at the next "]".
/// @param storage its content is discarded, its memory is used for the result
/// @return the low 8 bits of each element; nothing if a bracket is missing
std::optional<std::vector<std::uint8_t>> ReadByteList(std::string_view text,
                                                      std::vector<std::uint8_t> storage = {});

/// The same for decimal 32-bit elements.
std::optional<std::vector<std::uint32_t>> ReadNumberList(std::string_view text);

/// @return the address in a key such as "PARAM[19][0]"; nothing if the text before the first "[" is
///         not exactly "PARAM" or a bracket is missing
std::optional<ParameterAddress> ReadParameterKey(std::string_view key);

}  // namespace pellix
