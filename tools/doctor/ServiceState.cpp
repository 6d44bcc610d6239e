#include "tools/doctor/ServiceState.h"

#include <map>
#include <sstream>

#include "tools/doctor/ToolOutput.h"

namespace tavrikctl {

std::optional<ServiceState> ServiceState::Read() {
    const ToolOutput output =
        RunTool({"systemctl", "show",
                 "--property=LoadState,ActiveState,SubState,Result,User,MainPID", kServiceName});
    if (!output.succeeded) {
        return std::nullopt;
    }
    std::map<std::string, std::string> values;
    std::istringstream lines(output.text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos) {
            values[line.substr(0, equals)] = line.substr(equals + 1);
        }
    }
    return ServiceState{values["LoadState"], values["ActiveState"], values["SubState"],
                        values["Result"],    values["User"],        values["MainPID"]};
}

}  // namespace tavrikctl
