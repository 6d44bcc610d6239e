#include <fcntl.h>
#include <unistd.h>

#include "tools/CommandLine.h"

namespace {

/// Takes the places of standard streams that are closed: a socket in one of them would get what is
/// meant for the user. Nothing can be written to these.
void FillStandardStreams() {
    int descriptor = STDIN_FILENO;
    while (descriptor <= STDERR_FILENO && descriptor >= 0) {
        descriptor = open("/dev/null", O_RDONLY);
    }
    close(descriptor);
}

}  // namespace

int main(int argc, char** argv) {
    FillStandardStreams();
    return static_cast<int>(tavrikctl::CommandLine().Run(argc, argv));
}
