#include "client/JsonFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include "client/Failure.h"

namespace tavrik {

namespace {

using Json = nlohmann::json;

constexpr std::size_t kLargestFile = 1U << 20U;  // bytes

Failure Invalid(const std::string& path, const std::string& reason) {
    return {ExitStatus::Usage, path + ": " + reason};
}

std::string Reason(int error) {
    return std::generic_category().message(error);
}

std::string ReadText(const std::string& path) {
    std::string text(kLargestFile + 1, '\0');
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (!file.eof() && !file) {
        throw Invalid(path, "cannot be read: " + Reason(errno));
    }
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (text.size() > kLargestFile) {
        throw Invalid(path, "too large");
    }
    return text;
}

/// Finds duplicate names in an object, of which the parser would take the last.
class UniqueNames {
public:
    bool operator()(int /*depth*/, Json::parse_event_t event, Json& parsed) {
        if (event == Json::parse_event_t::object_start) {
            names.emplace_back();
        } else if (event == Json::parse_event_t::object_end) {
            names.pop_back();
        } else if (event == Json::parse_event_t::key &&
                   !names.back().insert(parsed.get<std::string>()).second) {
            repeated = parsed.get<std::string>();
        }
        return true;
    }

    std::string repeated;

private:
    std::vector<std::set<std::string>> names;  // of the open objects
};

/// A file descriptor for writing to a new file; both vanish unless the file is kept.
class NewFile {
public:
    explicit NewFile(std::string path)
        : path(std::move(path)),
          descriptor(open(this->path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)) {}
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile() {
        if (descriptor >= 0) {
            close(descriptor);
            unlink(path.c_str());
        }
    }

    bool IsOpen() const { return descriptor >= 0; }

    /// @return whether all of it is on the disk
    bool Write(const std::string& text) const {
        std::size_t written = 0;
        while (written < text.size()) {
            const ssize_t count = write(descriptor, text.data() + written, text.size() - written);
            if (count < 0 && errno != EINTR) {
                return false;
            }
            written += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        return fsync(descriptor) == 0;
    }

    bool RenameTo(const std::string& target) {
        if (rename(path.c_str(), target.c_str()) != 0) {
            return false;
        }
        close(std::exchange(descriptor, -1));
        return true;
    }

private:
    std::string path;
    int descriptor;
};

}  // namespace

Json ReadJsonFile(const std::string& path) {
    return ParseJsonFile(ReadText(path), path);
}

Json ParseJsonFile(const std::string& text, const std::string& path) {
    UniqueNames names;
    Json json;
    try {
        json = Json::parse(text, std::ref(names));
    } catch (const Json::parse_error& error) {
        throw Invalid(path, "not JSON, or truncated, at byte " + std::to_string(error.byte));
    } catch (const Json::exception&) {
        throw Invalid(path, "has a number that is too large");
    }
    if (!json.is_object()) {
        throw Invalid(path, "not a JSON object");
    }
    if (!names.repeated.empty()) {
        throw Invalid(path, "duplicate name '" + names.repeated + "'");
    }
    return json;
}

void ExpectFormat(const Json& file, const std::string& path, const std::string& format,
                  int version) {
    if (file.value("format", Json()) != format) {
        throw Invalid(path, "'format' is not '" + format + "'");
    }
    const Json found = file.value("version", Json());
    if (!found.is_number_integer() || found != version) {
        throw Invalid(path, "version " + found.dump() + " of its format is not supported, only " +
                                std::to_string(version));
    }
}

std::string JsonFileText(const Json& object) {
    const auto dump = [](const Json& value) {
        return value.dump(-1, ' ', true, Json::error_handler_t::replace);
    };
    std::string text;
    for (const auto& [name, value] : object.items()) {
        text += (text.empty() ? "{\n  " : ",\n  ") + dump(name) + ": ";
        if (!value.is_array() || value.empty()) {
            text += dump(value);
            continue;
        }
        std::string elements;
        for (const Json& element : value) {
            elements += (elements.empty() ? "[\n    " : ",\n    ") + dump(element);
        }
        text += elements + "\n  ]";
    }
    return text + "\n}\n";
}

void ReplaceFile(const std::string& path, const std::string& text) {
    const auto failed = [&](const std::string& reason) {
        return Failure(ExitStatus::Failed, "failed to write " + path + ": " + reason);
    };
    std::error_code absent;
    const auto present = std::filesystem::canonical(path, absent);
    if (!absent && !std::filesystem::is_regular_file(present)) {
        throw failed("it is not a regular file");
    }
    const std::string target = absent ? path : present.string();
    NewFile file(target + "." + std::to_string(getpid()) + ".new");
    if (!file.IsOpen() || !file.Write(text) || !file.RenameTo(target)) {
        throw failed(Reason(errno));
    }
}

}  // namespace tavrik
