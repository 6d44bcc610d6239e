// The library: formats the date of every answer anew, and looks for a change of the time zone each
// time, a system call.
// Without this: a call takes one system call more.
// Shown by: DateHeaderTest, that the text stays right.
// Can go: at any time; it is for speed alone.

#include <array>
#include <cstring>
#include <ctime>
#include <string_view>

#include "common/NextFunction.h"

namespace {

/// The text of the last second that this thread asked for; empty before.
struct DateText {
    std::time_t second = 0;
    std::array<char, 64> text{};
};

}  // namespace

/// @param dateStringP to be freed by xmlrpc_strfree(); null if the date cannot be told
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
