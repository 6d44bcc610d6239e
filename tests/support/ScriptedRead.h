#pragma once

#include <optional>
#include <string>

namespace support {

/// During its lifetime, the next read() of the thread that created the object returns `text`, or
/// fails if there is none; later reads are normal. A pseudo-terminal can neither fill the whole
/// buffer with one read nor make a read fail on demand.
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
