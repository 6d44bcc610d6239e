#include "web/Guard.h"

#include <algorithm>

#include "client/Failure.h"
#include "client/Printable.h"

namespace tavrik {

namespace {

/// "http://HOST[:PORT]" without its scheme; empty if it is something else.
std::string HostOf(const std::string& origin) {
    for (const std::string scheme : {"http://", "https://"}) {
        if (origin.starts_with(scheme)) {
            const std::string host = origin.substr(scheme.size());
            return host.find_first_of("/?#@ ,") == std::string::npos ? host : "";
        }
    }
    return "";
}

bool Contains(const std::vector<std::string>& texts, const std::string* text) {
    return text != nullptr && std::ranges::find(texts, *text) != texts.end();
}

HttpResponse Forbid(const std::string& reason) {
    return HttpResponse::Text(kForbidden, "refused: " + reason);
}

/// What a browser says about the page that caused a request: nothing, "none" for the user.
bool IsFromElsewhere(const HttpRequest& head) {
    const std::string* const site = head.Header("sec-fetch-site");
    return head.headers.contains("sec-fetch-site") &&
           (site == nullptr || (*site != "same-origin" && *site != "none"));
}

/// A link on another page may open this one, but nothing else here.
bool IsOpening(const HttpRequest& head) {
    const std::string* const mode = head.Header("sec-fetch-mode");
    return head.path == "/" && mode != nullptr && *mode == "navigate";
}

}  // namespace

Guard::Guard(const std::vector<std::string>& origins) : origins(origins) {
    for (const std::string& origin : origins) {
        hosts.push_back(HostOf(origin));
        if (hosts.back().empty()) {
            throw Failure(ExitStatus::Usage, "invalid origin '" + Printable(origin) +
                                                 "': must be http://HOST:PORT or https://HOST");
        }
    }
}

std::vector<std::string> Guard::OriginsOf(const ListenAddress& address) {
    std::vector<std::string> hosts;
    if (address.host == "::1") {
        hosts = {"http://[::1]", "http://localhost"};
    } else if (address.host == "127.0.0.1" || address.host == "0.0.0.0") {
        hosts = {"http://127.0.0.1", "http://localhost"};
    } else if (address.host.starts_with("127.")) {
        hosts = {"http://" + address.host};
    }
    constexpr std::uint16_t kDefaultPort = 80;  // browsers leave it out
    std::vector<std::string> origins;
    origins.reserve(2 * hosts.size());
    for (const std::string& host : hosts) {
        origins.push_back(host + ":" + std::to_string(address.port));
    }
    if (address.port == kDefaultPort) {
        origins.insert(origins.end(), hosts.begin(), hosts.end());
    }
    return origins;
}

std::optional<HttpResponse> Guard::Check(const HttpRequest& head) const {
    if (head.headers.size() > kMostHeaders) {
        return HttpResponse::Text(kTooManyHeaders, "too many headers");
    }
    if (!Contains(hosts, head.Header("host"))) {
        return Forbid("unknown host");
    }
    if (head.headers.contains("origin") && !Contains(origins, head.Header("origin"))) {
        return Forbid("unknown origin");
    }
    if (head.method == "GET" || head.method == "HEAD") {
        return IsFromElsewhere(head) && !IsOpening(head)
                   ? std::optional(Forbid("request of another page"))
                   : std::nullopt;
    }
    if (head.method != "POST") {
        return HttpResponse::Text(kNotAllowed, "method not allowed");
    }
    if (IsFromElsewhere(head) || !head.headers.contains("origin")) {
        return Forbid("request of another page");
    }
    if (head.Header(kPageHeader) == nullptr) {
        return Forbid("not sent by the page");
    }
    const std::string* const type = head.Header("content-type");
    if (type == nullptr || *type != "application/json") {
        return HttpResponse::Text(kForbidden, "refused: the content type must be application/json");
    }
    return std::nullopt;
}

}  // namespace tavrik
