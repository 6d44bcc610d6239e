#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "web/EventStream.h"

struct MHD_Daemon;

namespace tavrik {

// Statuses of refused requests.
constexpr unsigned kBadRequest = 400;
constexpr unsigned kForbidden = 403;
constexpr unsigned kNotFound = 404;
constexpr unsigned kNotAllowed = 405;
constexpr unsigned kTooManyRequests = 429;
constexpr unsigned kTooManyHeaders = 431;
constexpr unsigned kUnavailable = 503;

/// Bounds of what a client may send.
constexpr std::size_t kLargestBody = std::size_t{64} * 1024;  ///< bytes
constexpr std::size_t kMostHeaders = 50;

/// A request of a client. Text is as the client sent it: not checked, any bytes.
struct HttpRequest {
    std::string method;
    std::string path;  ///< without the query
    std::string body;
    std::string peer;  ///< address of the connection's other end
    std::multimap<std::string, std::string, std::less<>> headers;  ///< by name, in lower case

    /// The value of a header that occurs once, otherwise null.
    const std::string* Header(std::string_view name) const;
};

/// An answer: a body, or a stream of events.
struct HttpResponse {
    unsigned status = 200;
    std::string type = "text/plain; charset=utf-8";
    std::shared_ptr<const std::string> body = {};
    std::shared_ptr<EventStream> stream = {};
    std::vector<std::pair<std::string, std::string>> headers = {};  ///< in addition

    /// A body of plain text, one line.
    static HttpResponse Text(unsigned status, const std::string& line);
};

/// Answers requests. Called by the server's thread, so it must not block.
class HttpHandler {
public:
    /// To be called once, by any thread, at once or later.
    using Reply = std::function<void(HttpResponse)>;

    virtual ~HttpHandler() = default;

    /// Refuses a request before its body is read.
    /// @param head the request without its body
    virtual std::optional<HttpResponse> Refuse(const HttpRequest& head) = 0;

    virtual void Handle(const HttpRequest& request, Reply reply) = 0;
};

/// Where the server listens.
struct ListenAddress {
    std::string host = "127.0.0.1";  ///< an IPv4 or IPv6 address without brackets
    std::uint16_t port = 44280;      ///< 0: any free one
};

/// An HTTP server with one thread for all its connections. An idle or slow connection costs only
/// its memory; it is closed after 10 s without a byte.
class HttpServer {
public:
    /// Serves at once.
    /// @param handler must outlive the server
    /// @throws std::system_error when the address cannot be listened on
    HttpServer(const ListenAddress& address, HttpHandler& handler);

    /// Ends all connections. Replies that come later are ignored.
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    std::uint16_t Port() const;

    struct Callbacks;

private:
    std::shared_ptr<Callbacks> callbacks;  // shared with replies that are still to come
    MHD_Daemon* server = nullptr;          // owned
};

}  // namespace tavrik
