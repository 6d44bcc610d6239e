#include "tests/support/FakeConnection.h"

#include <exception>
#include <utility>

namespace support {

FakeConnection::~FakeConnection() {
    if (destroyed != nullptr) {
        *destroyed = true;
    }
}

std::string FakeConnection::Read() {
    ++reads;
    if (input.empty()) {
        return {};
    }
    std::string text = std::move(input.front());
    input.pop_front();
    return text;
}

int FakeConnection::Write(const std::string& text) {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        writes.push_back(text);
    }
    if (onWrite) {
        onWrite();
    }
    return writeResult;
}

void FakeConnection::Reopen() {
    ++reopens;
    if (failingReopens > 0) {
        --failingReopens;
        // The interface throws a pointer.
        throw new std::exception;  // NOLINT(misc-throw-by-value-catch-by-reference)
    }
}

std::vector<std::string> FakeConnection::Writes() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return writes;
}

}  // namespace support
