#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "simulator/FileDescriptor.h"

namespace simulator {

/// Stands in a testbed's folder as a udev monitor does under umockdev's preload library.
class UeventMonitor {
public:
    explicit UeventMonitor(const std::filesystem::path& folder, const std::string& name = "event3");

    /// @return the whole next message, nothing when there is none within 10 s.
    std::optional<std::string> Receive() const;

    bool HasMessage() const;

private:
    FileDescriptor descriptor;
};

/// The value of NAME=value in the properties of a message; empty when it is not there.
std::string Property(const std::string& message, const std::string& name);

}  // namespace simulator
