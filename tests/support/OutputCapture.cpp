#include "tests/support/OutputCapture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace support {

OutputCapture::OutputCapture(int descriptor)
    : target(descriptor),
      original(::fcntl(descriptor, F_DUPFD_CLOEXEC, 0)),
      file(::memfd_create("output", MFD_CLOEXEC)) {
    std::fflush(nullptr);
    ::fcntl(file, F_SETFL, O_APPEND);
    ::dup2(file, target);
}

OutputCapture::~OutputCapture() {
    std::fflush(nullptr);  // output of the test framework
    ::dup2(original, target);
    if (testing::Test::HasFailure()) {
        const std::string text = Text();
        [[maybe_unused]] const ssize_t count = ::write(target, text.data(), text.size());
    }
    ::close(original);
    ::close(file);
}

std::string OutputCapture::Text() const {
    std::string text;
    std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t count =
            ::pread(file, buffer.data(), buffer.size(), static_cast<off_t>(text.size()));
        if (count <= 0) {
            return text;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

void OutputCapture::Clear() const {
    [[maybe_unused]] const int result = ::ftruncate(file, 0);
}

}  // namespace support
