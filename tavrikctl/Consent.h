#pragma once

#include <string>

namespace tavrik {

/// Whether the user can be asked: standard input and output are a terminal.
bool CanAskUser();

/// Asks a question on the terminal and waits for a line. @return whether it says y or yes
bool AskUser(const std::string& question);

}  // namespace tavrik
