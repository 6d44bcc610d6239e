#pragma once

#include <array>
#include <string>
#include <vector>
#include <xmlrpc-c/base.hpp>

#include "client/MethodTable.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

/// Any method, with its arguments as text.
class CallCommand : public Command {
public:
    explicit CallCommand(CLI::App& program);
    ExitStatus Run(Daemon& daemon, Printer& printer) override;

private:
    /// @throws Failure (Usage), also when the number of arguments is not the method's
    const Method& ChosenMethod() const;
    std::vector<std::string> Arguments() const;
    xmlrpc_c::paramList Parameters(const Method& method, Daemon& daemon) const;

    std::string methodName;
    std::array<std::string, 3> texts;   // as many as any method takes
    std::vector<CLI::Option*> options;  // of the texts; the app's
    bool json = false;
    bool exact = false;
};

}  // namespace tavrik
