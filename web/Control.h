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

    static constexpr std::chrono::seconds kLifetime{60};  ///< without a sign of life

    enum class Denial { None, NotAllowed, WrongCode, TooManyAttempts };

    /// @param allowed whether control can be taken at all
    explicit Control(bool allowed, TimeSource now = &Clock::now);

    /// The code that a user has to enter, eight digits; new at each start.
    const std::string& Code() const { return code; }

    bool IsAllowed() const { return allowed; }

    /// Gives control to a page that knows the code, and takes it from the one that has it. After
    /// five wrong codes within a minute none is accepted for a minute.
    /// @param token set to what proves that a request comes from this page
    Denial Take(std::string_view code, const std::string& address, std::string& token);

    /// Whether `token` is the holder's; counts as its sign of life.
    bool IsHeldBy(std::string_view token);

    /// The same, but no sign of life: for what was asked for a while ago.
    bool IsStillHeldBy(std::string_view token);

    /// Gives control back.
    void Release(std::string_view token);

    /// What every viewer may know: whether control is allowed and held, since when by which
    /// address, and a number that tells a page whether it still is its own.
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
