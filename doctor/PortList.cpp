#include "doctor/PortList.h"

#include <sstream>

namespace tavrik {

bool PortList::Contains(unsigned port) const {
    std::istringstream ranges(text);
    for (std::string range; std::getline(ranges, range, ',');) {
        std::istringstream numbers(range);
        unsigned first = 0;
        unsigned last = 0;
        char dash = 0;
        if (!(numbers >> first)) {
            continue;
        }
        if (!(numbers >> dash >> last)) {
            last = first;
        }
        if (first <= port && port <= last) {
            return true;
        }
    }
    return false;
}

}  // namespace tavrik
