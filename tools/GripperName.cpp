#include "tools/GripperName.h"

#include <algorithm>
#include <set>

#include "tools/Failure.h"
#include "tools/Printable.h"

namespace tavrikctl {

namespace {

char Lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool Contains(const std::string& text, const std::string& part) {
    const auto place = std::search(text.begin(), text.end(), part.begin(), part.end(),
                                   [](char a, char b) { return Lower(a) == Lower(b); });
    return place != text.end() || part.empty();
}

template <typename Texts>
std::string Join(const Texts& texts) {
    std::string line;
    for (const std::string& text : texts) {
        line += (line.empty() ? "'" : ", '") + Printable(text) + "'";
    }
    return line;
}

}  // namespace

std::string MatchGripper(const std::vector<std::string>& grippers, const std::string& name) {
    std::set<std::string> found;
    for (const std::string& gripper : grippers) {
        if (gripper == name) {
            return name;
        }
        if (Contains(gripper, name)) {
            found.insert(gripper);
        }
    }
    if (found.size() == 1) {
        return *found.begin();
    }
    if (grippers.empty()) {
        throw Failure(ExitStatus::NoGripper, "the daemon knows no gripper");
    }
    if (found.empty()) {
        throw Failure(ExitStatus::NoGripper, "no gripper is called '" + Printable(name) +
                                                 "'; there are " + Join(grippers));
    }
    throw Failure(
        ExitStatus::NoGripper,
        (name.empty() ? "name one of the grippers " : "several grippers fit: ") + Join(found));
}

}  // namespace tavrikctl
