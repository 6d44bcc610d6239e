#pragma once

#include <unistd.h>

#include <cstdlib>
#include <string>

#include "simulator/FileDescriptor.h"

namespace bench {

/// A file without a byte, for as long as it lives.
struct EmptyFile {
    EmptyFile() = default;
    EmptyFile(const EmptyFile&) = delete;
    EmptyFile& operator=(const EmptyFile&) = delete;
    ~EmptyFile() { unlink(path.c_str()); }

    std::string path = "/tmp/bench.XXXXXX";

private:
    simulator::FileDescriptor file{mkstemp(path.data())};
};

}  // namespace bench
