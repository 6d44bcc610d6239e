#include "web/HttpServer.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <set>
#include <system_error>

namespace tavrik {

namespace {

constexpr unsigned kMostConnections = 400;
constexpr unsigned kIdleSeconds = 10;
constexpr std::size_t kConnectionMemory = std::size_t{16} * 1024;  // bytes; bounds path and headers
constexpr std::size_t kEventBlock = std::size_t{32} * 1024;        // bytes
constexpr int kListenBacklog = 128;

/// Headers of every response: only our own scripts run, nothing is loaded from or sent to other
/// hosts, and no page may embed ours in a frame.
constexpr std::array<std::pair<const char*, const char*>, 6> kHeaders{{
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; worker-src 'self'; style-src 'self'; img-src 'self'; "
     "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
}};

std::string Lower(std::string_view text) {
    std::string lower(text);
    for (char& each : lower) {
        if (each >= 'A' && each <= 'Z') {
            each = static_cast<char>(each - 'A' + 'a');
        }
    }
    return lower;
}

std::string PeerOf(MHD_Connection* connection) {
    const auto* const info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (info == nullptr || info->client_addr == nullptr) {
        return "unknown";
    }
    const sockaddr* const address = info->client_addr;
    const void* const bytes =
        address->sa_family == AF_INET
            ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in*>(address)->sin_addr)
            : &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
    return inet_ntop(address->sa_family, bytes, text.data(), text.size()) == nullptr ? "unknown"
                                                                                     : text.data();
}

MHD_Result TakeHeader(void* target, MHD_ValueKind /*kind*/, const char* name, const char* value) {
    static_cast<HttpRequest*>(target)->headers.emplace(Lower(name), value == nullptr ? "" : value);
    return MHD_YES;
}

struct ResponseDeleter {
    void operator()(MHD_Response* response) const { MHD_destroy_response(response); }
};
using Response = std::unique_ptr<MHD_Response, ResponseDeleter>;

/// A stream and the connection that it is sent on.
struct Sending {
    std::shared_ptr<EventStream> stream;
    MHD_Connection* connection;
};

ssize_t TakeEvents(void* target, std::uint64_t /*position*/, char* buffer, std::size_t size) {
    const auto& sending = *static_cast<Sending*>(target);
    std::size_t count = 0;
    MHD_Connection* const connection = sending.connection;
    const auto state = sending.stream->Take(
        buffer, size, count, [connection] { MHD_suspend_connection(connection); },
        [connection] { MHD_resume_connection(connection); });
    return state == EventStream::State::Ended ? MHD_CONTENT_READER_END_OF_STREAM
                                              : static_cast<ssize_t>(count);
}

void ForgetSending(void* target) {
    const std::unique_ptr<Sending> sending(static_cast<Sending*>(target));
    sending->stream->Detach();
}

/// So that a viewer that stalls is noticed. Otherwise the kernel would take events for minutes.
void KeepSendBufferSmall(MHD_Connection* connection) {
    constexpr int kSendBuffer = 32 * 1024;  // bytes
    const auto* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    if (info != nullptr) {
        setsockopt(info->connect_fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    }
}

Response MakeResponse(MHD_Connection* connection, const HttpResponse& from) {
    if (from.stream) {
        KeepSendBufferSmall(connection);
        auto sending = std::make_unique<Sending>(Sending{from.stream, connection});
        Response response(MHD_create_response_from_callback(
            MHD_SIZE_UNKNOWN, kEventBlock, &TakeEvents, sending.get(), &ForgetSending));
        if (response) {
            static_cast<void>(sending.release());  // owned by the response
        }
        return response;
    }
    static const auto empty = std::make_shared<const std::string>();
    const auto& body = from.body ? from.body : empty;
    auto owner = std::make_unique<std::shared_ptr<const std::string>>(body);
    // The library does not write to the buffer.
    Response response(MHD_create_response_from_buffer_with_free_callback_cls(
        body->size(), const_cast<char*>(body->data()),  // NOLINT(*-const-cast)
        [](void* target) { delete static_cast<std::shared_ptr<const std::string>*>(target); },
        owner.get()));
    if (response) {
        static_cast<void>(owner.release());  // owned by the response
    }
    return response;
}

MHD_Result Queue(MHD_Connection* connection, const HttpResponse& answer) {
    const Response response = MakeResponse(connection, answer);
    if (!response) {
        return MHD_NO;
    }
    for (const auto& [name, value] : kHeaders) {
        MHD_add_response_header(response.get(), name, value);
    }
    MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CONTENT_TYPE, answer.type.c_str());
    const bool isNamed = std::ranges::any_of(
        answer.headers, [](const auto& each) { return each.first == "Cache-Control"; });
    if (!isNamed) {
        MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    }
    for (const auto& [name, value] : answer.headers) {
        MHD_add_response_header(response.get(), name.c_str(), value.c_str());
    }
    return MHD_queue_response(connection, answer.status, response.get());
}

}  // namespace

/// What the library's callbacks share with the replies, which may outlive the server.
struct HttpServer::Callbacks : std::enable_shared_from_this<Callbacks> {
    /// One request of a connection, from its head to its answer.
    struct Exchange {
        HttpRequest request;
        bool isTooLong = false;
        bool wasHandled = false;
        std::optional<HttpResponse> answer;   // guarded by the mutex, like the next one
        MHD_Connection* suspended = nullptr;  // waits for the answer
    };
    using Pointer = std::shared_ptr<Exchange>;

    explicit Callbacks(HttpHandler& handler) : handler(handler) {}

    // The phases of a request, on the server's thread.
    MHD_Result Begin(MHD_Connection* connection, const char* url, const char* method, void** state);
    static MHD_Result TakeBody(Exchange& exchange, const char* data, std::size_t* size);
    MHD_Result Finish(MHD_Connection* connection, const Pointer& exchange);

    /// On any thread.
    void Answer(const Pointer& exchange, HttpResponse answer);

    /// Ends what waits for answers or events, because the library cannot stop before.
    void Close();

private:
    MHD_Result Send(MHD_Connection* connection, const HttpResponse& answer);
    static void Resume(Exchange& exchange, HttpResponse answer);

    HttpHandler& handler;
    std::mutex mutex;  // guards what follows; taken before EventStream's
    std::set<Pointer> suspended;
    std::vector<std::weak_ptr<EventStream>> streams;
    bool isClosed = false;
};

MHD_Result HttpServer::Callbacks::Begin(MHD_Connection* connection, const char* url,
                                        const char* method, void** state) {
    auto exchange = std::make_unique<Pointer>(std::make_shared<Exchange>());
    HttpRequest& request = (*exchange)->request;
    request.method = method;
    request.path = url;
    request.peer = PeerOf(connection);
    MHD_get_connection_values(connection, MHD_HEADER_KIND, &TakeHeader, &request);
    *state = exchange.release();  // freed by End()
    const auto refusal = handler.Refuse(request);
    return refusal ? Send(connection, *refusal) : MHD_YES;
}

MHD_Result HttpServer::Callbacks::TakeBody(Exchange& exchange, const char* data,
                                           std::size_t* size) {
    std::string& body = exchange.request.body;
    exchange.isTooLong = exchange.isTooLong || body.size() + *size > kLargestBody;
    if (!exchange.isTooLong) {
        body.append(data, *size);
    }
    *size = 0;
    return MHD_YES;
}

MHD_Result HttpServer::Callbacks::Finish(MHD_Connection* connection, const Pointer& exchange) {
    if (exchange->isTooLong) {
        return Send(connection,
                    HttpResponse::Text(MHD_HTTP_CONTENT_TOO_LARGE, "the body is too large"));
    }
    if (!exchange->wasHandled) {
        exchange->wasHandled = true;
        handler.Handle(exchange->request,
                       [self = shared_from_this(), exchange](HttpResponse answer) {
                           self->Answer(exchange, std::move(answer));
                       });
    }
    {
        const std::lock_guard lock(mutex);
        if (!exchange->answer && isClosed) {
            return MHD_NO;
        }
        if (!exchange->answer) {
            MHD_suspend_connection(connection);
            exchange->suspended = connection;
            suspended.insert(exchange);
            return MHD_YES;
        }
    }
    return Send(connection, *exchange->answer);
}

void HttpServer::Callbacks::Answer(const Pointer& exchange, HttpResponse answer) {
    const std::lock_guard lock(mutex);
    suspended.erase(exchange);
    Resume(*exchange, std::move(answer));
}

void HttpServer::Callbacks::Resume(Exchange& exchange, HttpResponse answer) {
    if (!exchange.answer) {
        exchange.answer = std::move(answer);
    }
    if (auto* const connection = std::exchange(exchange.suspended, nullptr)) {
        MHD_resume_connection(connection);
    }
}

void HttpServer::Callbacks::Close() {
    const std::lock_guard lock(mutex);
    isClosed = true;
    for (const Pointer& exchange : suspended) {
        Resume(*exchange, HttpResponse::Text(MHD_HTTP_SERVICE_UNAVAILABLE, "stopping"));
    }
    suspended.clear();
    for (const auto& each : streams) {
        if (const auto stream = each.lock()) {
            stream->End();
        }
    }
}

MHD_Result HttpServer::Callbacks::Send(MHD_Connection* connection, const HttpResponse& answer) {
    if (answer.stream) {
        const std::lock_guard lock(mutex);
        std::erase_if(streams, [](const auto& each) { return each.expired(); });
        streams.push_back(answer.stream);
        if (isClosed) {
            answer.stream->End();
        }
    }
    return Queue(connection, answer);
}

namespace {

using Callbacks = HttpServer::Callbacks;

MHD_Result Access(void* target, MHD_Connection* connection, const char* url, const char* method,
                  const char* /*version*/, const char* data, std::size_t* size, void** state) {
    auto& callbacks = *static_cast<Callbacks*>(target);
    if (*state == nullptr) {
        return callbacks.Begin(connection, url, method, state);
    }
    const auto exchange = *static_cast<Callbacks::Pointer*>(*state);
    return *size > 0 ? Callbacks::TakeBody(*exchange, data, size)
                     : callbacks.Finish(connection, exchange);
}

void End(void* /*target*/, MHD_Connection* /*connection*/, void** state,
         MHD_RequestTerminationCode /*reason*/) {
    const std::unique_ptr<Callbacks::Pointer> exchange(static_cast<Callbacks::Pointer*>(*state));
    *state = nullptr;
}

union SocketAddress {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
};

SocketAddress ToSocketAddress(const ListenAddress& address) {
    SocketAddress result{};
    if (inet_pton(AF_INET, address.host.c_str(), &result.v4.sin_addr) == 1) {
        result.v4.sin_family = AF_INET;
        result.v4.sin_port = htons(address.port);
        return result;
    }
    result = {};
    if (inet_pton(AF_INET6, address.host.c_str(), &result.v6.sin6_addr) == 1) {
        result.v6.sin6_family = AF_INET6;
        result.v6.sin6_port = htons(address.port);
        return result;
    }
    throw std::system_error(EINVAL, std::generic_category(), address.host);
}

}  // namespace

const std::string* HttpRequest::Header(std::string_view name) const {
    const auto [first, last] = headers.equal_range(name);
    return std::distance(first, last) == 1 ? &first->second : nullptr;
}

HttpResponse HttpResponse::Text(unsigned status, const std::string& line) {
    HttpResponse response;
    response.status = status;
    response.body = std::make_shared<const std::string>(line + "\n");
    return response;
}

HttpServer::HttpServer(const ListenAddress& address, HttpHandler& handler)
    : callbacks(std::make_shared<Callbacks>(handler)) {
    SocketAddress socketAddress = ToSocketAddress(address);
    const unsigned flags = MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME |
                           (socketAddress.any.sa_family == AF_INET6 ? unsigned{MHD_USE_IPv6} : 0U);
    errno = 0;
    server = MHD_start_daemon(
        flags, address.port, nullptr, nullptr, &Access, callbacks.get(), MHD_OPTION_SOCK_ADDR,
        &socketAddress.any, MHD_OPTION_LISTEN_BACKLOG_SIZE, kListenBacklog,
        MHD_OPTION_CONNECTION_LIMIT, kMostConnections, MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds,
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory, MHD_OPTION_NOTIFY_COMPLETED, &End,
        nullptr, MHD_OPTION_END);
    if (server == nullptr) {
        throw std::system_error(errno, std::generic_category(),
                                address.host + " port " + std::to_string(address.port));
    }
}

HttpServer::~HttpServer() {
    callbacks->Close();
    MHD_stop_daemon(server);
}

std::uint16_t HttpServer::Port() const {
    return MHD_get_daemon_info(server, MHD_DAEMON_INFO_BIND_PORT)->port;
}

}  // namespace tavrik
