#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace tavrik {

/// The JSON object in the file `path`, which may contain anything.
/// @throws Failure (Usage) if the file cannot be read, exceeds 1 MiB, or is not one JSON object
/// whose names are unique
nlohmann::json ReadJsonFile(const std::string& path);

/// The same for the content of a file, which a user knows by the name `path`.
nlohmann::json ParseJsonFile(const std::string& text, const std::string& path);

/// @throws Failure (Usage) unless `file`, read from `path`, has this format and version
void ExpectFormat(const nlohmann::json& file, const std::string& path, const std::string& format,
                  int version);

/// `object` as a text for version control: sorted by name, ASCII only, a line for each value and
/// for each element of an array.
std::string JsonFileText(const nlohmann::json& object);

/// Writes a file that has either its old or its new content, whatever fails. A symbolic link is
/// followed.
/// @throws Failure (Failed)
void ReplaceFile(const std::string& path, const std::string& text);

}  // namespace tavrik
