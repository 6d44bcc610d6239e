#pragma once

#include <optional>
#include <string>

namespace support {

/// For its scope, the next read() of the thread that made the object, and only that one, returns
/// `text`, or fails when there is none. A pseudo-terminal can do neither a read that fills the
/// buffer nor one that fails on demand.
///
/// The executable is linked with --wrap=read.
class ScriptedRead {
public:
    explicit ScriptedRead(std::optional<std::string> text);
    ScriptedRead(const ScriptedRead&) = delete;
    ScriptedRead& operator=(const ScriptedRead&) = delete;
    ~ScriptedRead();

private:
    const std::optional<std::string> result;
};

}  // namespace support
