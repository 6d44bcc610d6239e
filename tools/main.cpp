#include <exception>
#include <iostream>

#include "tools/CommandLine.h"

int main(int argc, char** argv) {
    try {
        return static_cast<int>(tavrikctl::CommandLine().Run(argc, argv));
    } catch (const std::exception& error) {
        std::cerr << "tavrikctl: " << error.what() << '\n';
        return 1;
    }
}
