#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "pellix/Connection.h"

namespace support {

/// A connection whose input is given by the test and whose output the test can look at.
///
/// The fields are the test's, to be set before the calls that they concern; Write() may come from
/// any thread, the rest belongs to one.
class FakeConnection : public pellix::Connection {
public:
    /// @param flag set to true by the destructor; may be null
    explicit FakeConnection(bool* flag = nullptr) : destroyed(flag) {}
    FakeConnection(const FakeConnection&) = delete;
    FakeConnection& operator=(const FakeConnection&) = delete;
    ~FakeConnection() override;

    /// The next of `input`; empty, at once, when there is none.
    std::string Read() override;

    /// Records `text`, runs onWrite and returns writeResult.
    int Write(const std::string& text) override;

    /// Throws while failingReopens is not used up.
    void Reopen() override;

    /// What was written, oldest first.
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
