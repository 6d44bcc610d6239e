#pragma once

#include <string>

namespace tavrik {

/// The end of a command's help: what it does, its units, an example and what can go wrong. Empty
/// for an unknown command.
std::string HelpText(const std::string& command);

}  // namespace tavrik
