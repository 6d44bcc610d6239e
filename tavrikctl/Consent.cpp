#include "tavrikctl/Consent.h"

#include <unistd.h>

#include <iostream>

namespace tavrik {

bool CanAskUser() {
    return isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
}

bool AskUser(const std::string& question) {
    std::cout << question << " [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace tavrik
