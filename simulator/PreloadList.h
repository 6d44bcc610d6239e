#pragma once

#include <filesystem>
#include <string>

namespace simulator {

/// What LD_PRELOAD has to be for COMMAND, so that it sees the devices of a testbed alone.
/// @param testbedFolder gets a link to our own library
/// @param libraryFolder where our own library lies
/// @throws std::exception when one of the libraries cannot be loaded
std::string PreloadList(const std::filesystem::path& testbedFolder,
                        const std::filesystem::path& libraryFolder);

}  // namespace simulator
