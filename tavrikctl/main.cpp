#include <fcntl.h>

#include "common/StandardDescriptors.h"
#include "tavrikctl/CommandLine.h"
#include "tavrikctl/Interruption.h"

int main(int argc, char** argv) {
    KeepStandardDescriptors(O_RDONLY);  // lost output is a failure
    const tavrik::ExitStatus status = tavrik::CommandLine().Run(argc, argv);
    if (status == tavrik::ExitStatus::Interrupted) {
        tavrik::EndInterrupted();
    }
    return static_cast<int>(status);
}
