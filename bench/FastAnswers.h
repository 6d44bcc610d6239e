#pragma once

#include <string>
#include <string_view>

namespace bench {

/// What a master in operate answers to requests in the text protocol. Its gripper is an HVA with
/// the serial number "B07" behind master 7. Assignments and calls are accepted and change nothing.
class FastAnswers {
public:
    /// @param masterNumber 0 to 99
    explicit FastAnswers(unsigned masterNumber);

    /// Appends the answer to `request`, a line without its line feed; what is no request has none.
    void Append(std::string_view request, std::string& text) const;

private:
    std::string_view ValueOf(std::string_view key) const;

    std::string serial;  // as a byte list
};

}  // namespace bench
