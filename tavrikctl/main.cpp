#include <fcntl.h>

#include "common/StandardDescriptors.h"
#include "tavrikctl/CommandLine.h"

int main(int argc, char** argv) {
    KeepStandardDescriptors(O_RDONLY);  // lost output is a failure
    return static_cast<int>(tavrik::CommandLine().Run(argc, argv));
}
