#pragma once

#include <optional>
#include <string>
#include <vector>

#include "web/HttpServer.h"

namespace tavrik {

/// A header that only our page sends: browsers ask the server before another origin may add it.
constexpr const char* kPageHeader = "x-tavrik-page";

/// Refuses requests that another web page in the user's browser may have caused, before anything
/// else looks at them.
class Guard {
public:
    /// @param origins under which the page is served, such as "http://127.0.0.1:44280"
    /// @throws Failure (Usage) for one that is not "http://HOST[:PORT]" or "https://..."
    explicit Guard(const std::vector<std::string>& origins);

    /// The origins of a server that listens on `address`: only a loopback address has some.
    static std::vector<std::string> OriginsOf(const ListenAddress& address);

    /// Why a request is refused, otherwise nothing. The text is for a log line.
    std::optional<HttpResponse> Check(const HttpRequest& head) const;

private:
    std::vector<std::string> origins;
    std::vector<std::string> hosts;  // of the origins
};

}  // namespace tavrik
