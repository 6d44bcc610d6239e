#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "simulator/FileDescriptor.h"

namespace simulator {

/// The socket of a udev monitor, as umockdev's preload library creates it in a testbed's folder.
class UeventMonitor {
public:
    explicit UeventMonitor(const std::filesystem::path& folder, const std::string& name = "event3");

    /// @return the next message; nothing if none arrives within 10 s.
    std::optional<std::string> Receive() const;

    bool HasMessage() const;

private:
    FileDescriptor descriptor;
};

/// The value of NAME=value in the properties of a message; empty if it is missing.
std::string Property(const std::string& message, const std::string& name);

}  // namespace simulator
