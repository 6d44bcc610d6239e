#include "web/Control.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

namespace tavrik {

namespace {

constexpr unsigned kMostWrongCodes = 5;
constexpr std::chrono::minutes kWrongCodesFor(1);
constexpr std::size_t kTokenBytes = 16;

std::uint64_t RandomNumber() {
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof number, 0) != sizeof number) {
        throw std::system_error(errno, std::generic_category(), "random numbers");
    }
    return number;
}

std::string MakeCode() {
    constexpr std::uint64_t kCodes = 100000000;
    std::string digits = std::to_string(kCodes + RandomNumber() % kCodes);
    return digits.substr(1);
}

/// Takes the same time wherever the texts differ.
bool IsSame(std::string_view left, std::string_view right) {
    unsigned difference = left.size() == right.size() ? 0U : 1U;
    for (std::size_t i = 0; i < left.size() && i < right.size(); ++i) {
        difference |= static_cast<unsigned>(left[i] ^ right[i]);
    }
    return difference == 0;
}

}  // namespace

std::string RandomText(std::size_t bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    while (text.size() < 2 * bytes) {
        for (std::uint64_t left = RandomNumber(); left != 0 && text.size() < 2 * bytes;
             left >>= 4U) {
            text += kDigits[left & 0xfU];
        }
    }
    return text;
}

Control::Control(bool allowed, TimeSource now)
    : allowed(allowed), code(MakeCode()), now(std::move(now)) {}

Control::Denial Control::Take(std::string_view code, const std::string& address,
                              std::string& token) {
    if (!allowed) {
        return Denial::NotAllowed;
    }
    const std::lock_guard lock(mutex);
    if (now() - wrongSince >= kWrongCodesFor) {
        wrongCodes = 0;
    }
    if (wrongCodes >= kMostWrongCodes) {
        return Denial::TooManyAttempts;
    }
    if (!IsSame(code, this->code)) {
        ++wrongCodes;
        wrongSince = now();
        return Denial::WrongCode;
    }
    wrongCodes = 0;
    holder = RandomText(kTokenBytes);
    token = holder;
    this->address = address;
    ++number;
    lastContact = now();
    return Denial::None;
}

bool Control::IsHeldLocked() {
    if (!holder.empty() && now() - lastContact >= kLifetime) {
        holder.clear();
    }
    return !holder.empty();
}

bool Control::IsHeldBy(std::string_view token) {
    const std::lock_guard lock(mutex);
    const bool isHolder = IsHeldLocked() && IsSame(token, holder);
    if (isHolder) {
        lastContact = now();
    }
    return isHolder;
}

bool Control::IsStillHeldBy(std::string_view token) {
    const std::lock_guard lock(mutex);
    return IsHeldLocked() && IsSame(token, holder);
}

void Control::Release(std::string_view token) {
    const std::lock_guard lock(mutex);
    if (IsHeldLocked() && IsSame(token, holder)) {
        holder.clear();
    }
}

nlohmann::ordered_json Control::Json() {
    const std::lock_guard lock(mutex);
    const bool isHeld = IsHeldLocked();
    return {{"allowed", allowed},
            {"held", isHeld},
            {"by", isHeld ? address : ""},
            {"holder", isHeld ? number : 0}};
}

}  // namespace tavrik
