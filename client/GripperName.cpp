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

constexpr std::string_view kSerial = " SN:";
constexpr std::size_t kShortestPart = 4;  // characters

bool AreEqual(std::string_view one, std::string_view other) {
    return std::ranges::equal(one, other, {}, Lower, Lower);
}

/// Whether `part` is in `device`. Within the serial number it must be its end: otherwise 1234 would
/// match 12345 while gripper 1234 is unplugged.
bool Contains(std::string_view device, std::string_view part) {
    const std::size_t serial = std::min(device.rfind(kSerial), device.size());
    for (std::size_t end = part.size(); end <= device.size(); ++end) {
        const bool isCut = end > serial + kSerial.size() && end < device.size();
        if (!isCut && AreEqual(device.substr(end - part.size(), part.size()), part)) {
            return true;
        }
    }
    return false;
}

/// Whether `name` is the model of `device`: its product name or the first word of it, as MZD of
/// MZD-S.
bool IsModel(std::string_view device, std::string_view name) {
    const std::string_view product = device.substr(0, device.rfind(kSerial));
    return AreEqual(product, name) ||
           AreEqual(product.substr(0, product.find_first_of(" -")), name);
}

bool IsSerialNumber(std::string_view device, std::string_view name) {
    const std::size_t serial = device.rfind(kSerial);
    return serial != std::string_view::npos &&
           AreEqual(device.substr(serial + kSerial.size()), name);
}

/// Whether `name` is meant for `device`. A short number is not, even if it is the serial number: it
/// may be meant as that of a master, and another gripper would move.
bool IsMeant(std::string_view device, std::string_view name) {
    if (name.empty() || name.size() >= kShortestPart) {
        return Contains(device, name);
    }
    const bool isNumber = name.find_first_not_of("0123456789") == std::string_view::npos;
    return !isNumber && (IsModel(device, name) || IsSerialNumber(device, name));
}

std::string Join(const std::vector<std::string>& texts) {
    std::string line;
    for (const std::string& text : texts) {
        line += (line.empty() ? "'" : ", '") + Printable(text) + "'";
    }
    return line;
}

/// Why `found` is not exactly one of the `grippers`.
std::string ExplainNoMatch(const std::vector<std::string>& grippers,
                           const std::vector<std::string>& found, const std::string& name,
                           bool exact) {
    if (grippers.empty()) {
        return "no grippers found";
    }
    const bool isPart = std::ranges::any_of(
        grippers, [&](const std::string& gripper) { return Contains(gripper, name); });
    if (found.empty() && isPart && !exact) {
        return "'" + Printable(name) +
               "' is too short to name a gripper: type its model or at least " +
               std::to_string(kShortestPart) + " characters; available: " + Join(grippers);
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
                     return isWhole ? gripper == name : IsMeant(gripper, name);
                 });
    if (found.size() == 1) {
        return found.front();
    }
    throw Failure(ExitStatus::NoGripper, ExplainNoMatch(grippers, found, name, exact));
}

}  // namespace tavrik
