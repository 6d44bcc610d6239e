#include <fcntl.h>

#include "common/StandardDescriptors.h"
#include "tavrikctl/CommandLine.h"

int main(int argc, char** argv) {
    KeepStandardDescriptors(O_RDONLY);  // output that is lost is a failure, not dropped
    return static_cast<int>(tavrik::CommandLine().Run(argc, argv));
}
