#pragma once

/// For its scope, or until Release(), who terminates a server stays inside the library's call, as
/// happens on a busy machine.
class HeldTermination {
public:
    HeldTermination();
    HeldTermination(const HeldTermination&) = delete;
    HeldTermination& operator=(const HeldTermination&) = delete;
    ~HeldTermination();

    /// Waits until somebody is inside. @return whether somebody came
    bool WaitUntilInside() const;

    void Release();
};
