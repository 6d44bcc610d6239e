#include "tools/Model.h"

namespace tavrikctl {

Model NarrowModel(const std::string& told, const std::string& deviceString) {
    for (const std::string name : {"HVA", "MZD", "TLM"}) {
        const bool isPossible = told.ends_with('?') || told.find(name) != std::string::npos;
        if (isPossible && told != name && deviceString.starts_with(name)) {
            return {name, "name"};
        }
    }
    return {told, told == kModelNotAsked ? "nothing" : "answers"};
}

}  // namespace tavrikctl
