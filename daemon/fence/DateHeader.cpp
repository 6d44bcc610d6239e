// The library: formats the date for every response and checks the time zone file each time, which
// is a system call.
// Without this: each call costs one more system call.
// Shown by: DateHeaderTest, which checks the text.
// Can go: at any time; it only saves time.

#include <array>
#include <cstring>
#include <ctime>
#include <string_view>

#include "common/NextFunction.h"

namespace {

/// The last text that this thread formatted; empty at first.
struct DateText {
    std::time_t second = 0;
    std::array<char, 64> text{};
};

}  // namespace

/// @param dateStringP to be freed with xmlrpc_strfree(); null if the date cannot be formatted
extern "C" void DateToString(std::time_t datetime, const char** dateStringP) {
    static auto* const next = fence::NextFunction<decltype(DateToString)>("DateToString");
    constinit thread_local DateText last;
    if (last.second == datetime && last.text.front() != '\0') {
        *dateStringP = strdup(last.text.data());
        return;
    }
    next(datetime, dateStringP);
    const std::string_view text = *dateStringP == nullptr ? "" : *dateStringP;
    if (text.size() < last.text.size()) {
        last.text[text.copy(last.text.data(), text.size())] = '\0';
        last.second = datetime;
    }
}
