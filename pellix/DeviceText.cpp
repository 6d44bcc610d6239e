#include "pellix/DeviceText.h"

#include <string_view>

namespace pellix {

namespace {

constexpr char kReplacement = '?';

bool IsContinuation(char byte) {
    return (static_cast<std::uint8_t>(byte) & 0xC0) == 0x80;
}

/// @return length in bytes of a UTF-8 character that begins with `lead`; 0 if none does
std::size_t AnnouncedLength(std::uint8_t lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return 3;
    }
    return lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
}

/// Rejects well-formed sequences that are invalid: overlong forms, surrogates, above U+10FFFF.
bool IsAllowedSecond(std::uint8_t lead, std::uint8_t second) {
    switch (lead) {
        case 0xE0:
            return second >= 0xA0;
        case 0xED:
            return second < 0xA0;
        case 0xF0:
            return second >= 0x90;
        case 0xF4:
            return second < 0x90;
        default:
            return true;
    }
}

/// @return length in bytes of the UTF-8 character at the start of `text`; 0 if there is none
std::size_t CharacterLength(std::string_view text) {
    const auto lead = static_cast<std::uint8_t>(text.front());
    const std::size_t length = AnnouncedLength(lead);
    if (length > text.size()) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if (!IsContinuation(text[i])) {
            return 0;
        }
    }
    const bool allowed = length < 2 || IsAllowedSecond(lead, static_cast<std::uint8_t>(text[1]));
    return allowed ? length : 0;
}

bool IsUnharmed(std::string_view character) {
    switch (character.size()) {
        case 1: {
            const char c = character.front();
            return static_cast<std::uint8_t>(c) >= 0x20 || c == '\t' || c == '\n';
        }
        case 2:
            return true;
        case 3:
            return character != "\xEF\xBF\xBE" && character != "\xEF\xBF\xBF";  // U+FFFE, U+FFFF
        default:
            return false;
    }
}

}  // namespace

std::string ToSafeText(const std::vector<std::uint8_t>& bytes) {
    const std::string raw(bytes.begin(), bytes.end());
    std::string_view rest(raw);
    rest.remove_suffix(rest.size() - (rest.find_last_not_of('\0') + 1));
    std::string safe;
    while (!rest.empty()) {
        const std::size_t length = CharacterLength(rest);
        const std::string_view character = rest.substr(0, length);
        if (length > 0 && IsUnharmed(character)) {
            safe += character;
        } else {
            safe += kReplacement;
        }
        rest.remove_prefix(length > 0 ? length : 1);
    }
    return safe;
}

}  // namespace pellix
