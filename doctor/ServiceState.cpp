#include "doctor/ServiceState.h"

#include <fstream>
#include <map>
#include <sstream>

#include "doctor/ToolOutput.h"

namespace tavrik {

std::optional<ServiceState> ServiceState::Read() {
    const ToolOutput output =
        RunTool({"systemctl", "show",
                 "--property=LoadState,ActiveState,SubState,Result,User,MainPID,ControlGroup,"
                 "IPAddressDeny,IPAddressAllow",
                 kServiceName});
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
    return ServiceState{values["LoadState"],    values["ActiveState"],   values["SubState"],
                        values["Result"],       values["User"],          values["MainPID"],
                        values["ControlGroup"], values["IPAddressDeny"], values["IPAddressAllow"]};
}

bool ServiceState::Has(pid_t pid) const {
    std::ifstream file("/proc/" + std::to_string(pid) + "/cgroup");
    for (std::string line; !group.empty() && std::getline(file, line);) {
        if (line.ends_with(":" + group)) {  // behind a hierarchy and its controllers
            return true;
        }
    }
    return false;
}

}  // namespace tavrik
