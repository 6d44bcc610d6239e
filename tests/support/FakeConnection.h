#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "pellix/Connection.h"

namespace support {

/// A connection to which the test provides the input and whose output the test can check.
///
/// The test sets the fields before the calls that use them. Any thread may call Write(); everything
/// else belongs to one thread.
class FakeConnection : public pellix::Connection {
public:
    /// @param flag set to true by the destructor; may be null
    explicit FakeConnection(bool* flag = nullptr) : destroyed(flag) {}
    FakeConnection(const FakeConnection&) = delete;
    FakeConnection& operator=(const FakeConnection&) = delete;
    ~FakeConnection() override;

    /// @return the next element of `input`; empty if there is none. Does not block.
    std::string Read() override;

    /// Records `text`, runs onWrite and returns writeResult.
    int Write(const std::string& text) override;

    /// Throws for the first `failingReopens` calls.
    void Reopen() override;

    /// @return written texts, oldest first
    std::vector<std::string> Writes() const;

    std::deque<std::string> input;
    std::function<void()> onWrite;
    int writeResult = 0;
    unsigned failingReopens = 0;
    unsigned reads = 0;    ///< calls of Read()
    unsigned reopens = 0;  ///< calls of Reopen()

private:
    bool* const destroyed;
    std::vector<std::string> writes;
    mutable std::mutex mutex;  // guards writes
};

}  // namespace support
