#pragma once

#include <string>

#include "client/Failure.h"

namespace tavrik {

/// What a status code of the daemon means, in words.
std::string StatusText(int status);

/// The exit status that stands for a status code of the daemon.
ExitStatus ExitStatusOf(int status);

}  // namespace tavrik
