#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace tavrik {

/// `bytes` random bytes of the system in hexadecimal.
std::string RandomText(std::size_t bytes);

/// Who may move the grippers: one page at a time, whose user knows the code. Any thread may call.
class Control {
public:
    using Clock = std::chrono::steady_clock;
    using TimeSource = std::function<Clock::time_point()>;

    static constexpr std::chrono::seconds kLifetime{60};  ///< without contact

    enum class Denial { None, NotAllowed, WrongCode, TooManyAttempts };

    /// @param allowed whether control can be taken at all
    explicit Control(bool allowed, TimeSource now = &Clock::now);

    /// The code that a user has to enter, eight digits; new at each start.
    const std::string& Code() const { return code; }

    bool IsAllowed() const { return allowed; }

    /// Gives control to a page whose user has entered the code, and takes it from the one that has
    /// it. After five wrong codes within a minute, none is accepted for a minute.
    /// @param token set to a secret that identifies the requests of this page
    Denial Take(std::string_view code, const std::string& address, std::string& token);

    /// Whether `token` is the holder's; also extends its lifetime.
    bool IsHeldBy(std::string_view token);

    /// The same without extending it: for a request that has waited.
    bool IsStillHeldBy(std::string_view token);

    /// Gives control back.
    void Release(std::string_view token);

    /// What every viewer may know: whether control is allowed and held, since when by which
    /// address, and a number that tells a page whether it still has control.
    nlohmann::ordered_json Json();

private:
    bool IsHeldLocked();

    const bool allowed;
    const std::string code;
    const TimeSource now;
    std::mutex mutex;    // guards what follows
    std::string holder;  // its token; empty if there is none
    std::string address;
    std::uint64_t number = 0;  // of the holder
    Clock::time_point lastContact{};
    unsigned wrongCodes = 0;
    Clock::time_point wrongSince{};
};

}  // namespace tavrik
