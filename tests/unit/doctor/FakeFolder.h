#pragma once

#include <string>

/// A folder with what a test puts into it, gone with this object.
class FakeFolder {
public:
    FakeFolder();
    ~FakeFolder();
    FakeFolder(const FakeFolder&) = delete;
    FakeFolder& operator=(const FakeFolder&) = delete;

    const std::string& Path() const { return path; }

    // With the folders above it.
    void Write(const std::string& name, const std::string& text) const;
    void Link(const std::string& name, const std::string& target) const;

    /// Process `pid`, named `name`, with `tty` open if one is given.
    void AddProcess(int pid, const std::string& name, const std::string& tty = "",
                    char state = 'S') const;

private:
    std::string path;
};
