#include "tools/CommandLine.h"

int main(int argc, char** argv) {
    return static_cast<int>(tavrikctl::CommandLine().Run(argc, argv));
}
