#include "client/GripperName.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>

#include "client/Failure.h"
#include "client/Printable.h"

namespace tavrik {

namespace {

char Lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// Whether `part` is in `device`. In the serial number it ends only where that ends: 12 would else
/// be taken for 123 while the gripper 12 is unplugged.
bool Contains(const std::string& device, const std::string& part) {
    constexpr std::string_view kSerial = " SN:";
    const std::size_t serial = std::min(device.rfind(kSerial), device.size());
    for (std::size_t end = part.size(); end <= device.size(); ++end) {
        const bool isCut = end > serial + kSerial.size() && end < device.size();
        const std::string_view piece =
            std::string_view(device).substr(end - part.size(), part.size());
        if (!isCut && std::ranges::equal(piece, part, {}, Lower, Lower)) {
            return true;
        }
    }
    return false;
}

std::string Join(const std::vector<std::string>& texts) {
    std::string line;
    for (const std::string& text : texts) {
        line += (line.empty() ? "'" : ", '") + Printable(text) + "'";
    }
    return line;
}

/// Why `found` is not one of the `grippers`.
std::string Doubt(const std::vector<std::string>& grippers, const std::vector<std::string>& found,
                  const std::string& name) {
    if (grippers.empty()) {
        return "no grippers found";
    }
    if (found.empty()) {
        return "no gripper matches '" + Printable(name) + "'; available: " + Join(grippers);
    }
    if (std::set<std::string>(found.begin(), found.end()).size() == 1) {
        return std::to_string(found.size()) + " grippers are named " + Join({found.front()}) +
               " and calls reach only the first: unplug all but one";
    }
    return (name.empty() ? "several grippers found, name one of: " : "several grippers match: ") +
           Join(found);
}

}  // namespace

std::string MatchGripper(const std::vector<std::string>& grippers, const std::string& name,
                         bool exact) {
    const bool isWhole =
        exact || std::find(grippers.begin(), grippers.end(), name) != grippers.end();
    std::vector<std::string> found;
    std::copy_if(grippers.begin(), grippers.end(), std::back_inserter(found),
                 [&](const std::string& gripper) {
                     return isWhole ? gripper == name : Contains(gripper, name);
                 });
    if (found.size() == 1) {
        return found.front();
    }
    throw Failure(ExitStatus::NoGripper, Doubt(grippers, found, name));
}

}  // namespace tavrik
