#pragma once

// Replacements of functions of the HTTP library, with which a test makes them fail or block.

/// Makes the HTTP library fail to create its next connection, as if it were out of memory.
void FailNextConnection();

/// During its lifetime, or until Release(), keeps a thread that terminates a server inside the
/// library's function, as happens on a busy machine.
class HeldTermination {
public:
    HeldTermination();
    HeldTermination(const HeldTermination&) = delete;
    HeldTermination& operator=(const HeldTermination&) = delete;
    ~HeldTermination();

    /// Waits until a thread is inside.
    /// @return false if none came in time
    bool WaitUntilInside() const;

    void Release();
};
