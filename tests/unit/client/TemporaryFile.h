#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// The path of a file in a folder of its own, gone with this object.
class TemporaryFile {
public:
    TemporaryFile() { std::filesystem::create_directory(folder); }
    ~TemporaryFile() { std::filesystem::remove_all(folder); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void Write(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }

    std::string Content() const {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("tavrik-test-" + std::to_string(getpid()));
    const std::string path = folder / "file";
};
