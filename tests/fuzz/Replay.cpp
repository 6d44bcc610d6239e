// Replaces the fuzzer in builds without one: runs a fuzz target on the files of its corpus, so that
// every test run repeats the inputs that fuzzing has found.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/fuzz/FuzzTarget.h"

/// Usage: PROGRAM FOLDER...
int main(int count, char** arguments) {
    LLVMFuzzerInitialize(&count, &arguments);
    unsigned files = 0;
    for (int i = 1; i < count; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string input{std::istreambuf_iterator<char>(file), {}};
            std::fprintf(stderr, "%s\n", entry.path().c_str());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()),
                                   input.size());
            ++files;
        }
    }
    return files > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
