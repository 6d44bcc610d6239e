#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "web/HttpServer.h"

namespace tavrik {

/// The files of the page, read once at the start; no other file can be asked for.
class Assets {
public:
    /// @param folder with the page's own files
    /// @throws Failure (Failed) when one of them cannot be read
    explicit Assets(const std::string& folder);

    /// The file that `path` names, otherwise nothing.
    std::optional<HttpResponse> Find(const std::string& path) const;

private:
    std::map<std::string, HttpResponse> files;  // by path
};

}  // namespace tavrik
