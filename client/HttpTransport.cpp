#include "client/HttpTransport.h"

#include <curl/curl.h>

#include <chrono>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace tavrik {

namespace {

constexpr std::size_t kLargestAnswer = 1U << 20U;  // bytes
constexpr long kHttpOk = 200;

/// A document type may declare nested entities that keep the parser busy for hours. In UTF-16 the
/// text is not found, but there are zero bytes then.
bool MayDeclareEntities(const std::string& xml) {
    return xml.find("<!DOCTYPE") != std::string::npos || xml.find('\0') != std::string::npos;
}

/// libcurl aborts the transfer if less is taken than was offered.
std::size_t Append(const char* data, std::size_t size, std::size_t count, void* target) {
    auto& answer = *static_cast<std::string*>(target);
    const std::size_t length = size * count;
    if (answer.size() + length > kLargestAnswer) {
        return 0;
    }
    answer.append(data, length);
    return length;
}

/// libcurl calls this at least once a second; anything but 0 aborts the transfer.
int IsStopped(const void* token, curl_off_t /*total*/, curl_off_t /*received*/,
              curl_off_t /*toSend*/, curl_off_t /*sent*/) {
    return static_cast<const std::stop_token*>(token)->stop_requested() ? 1 : 0;
}

Failure NotADaemon(const Endpoint& endpoint, const std::string& reason) {
    return {ExitStatus::BadAnswer, endpoint.Address() + " is not a TavrikDaemon: " + reason};
}

std::string SecondsText(std::chrono::milliseconds time) {
    std::ostringstream text;
    text << std::chrono::duration<double>(time).count() << " s";
    return text.str();
}

}  // namespace

void HttpTransport::Deleter::operator()(void* handle) const {
    curl_easy_cleanup(handle);
}

void HttpTransport::Deleter::operator()(curl_slist* list) const {
    curl_slist_free_all(list);
}

HttpTransport::HttpTransport(const Endpoint& endpoint, std::stop_token stop)
    : endpoint(endpoint),
      stop(std::move(stop)),
      headers(curl_slist_append(nullptr, "Content-Type: text/xml")),
      handle(curl_easy_init()) {
    if (handle == nullptr || headers == nullptr) {
        throw std::runtime_error("failed to initialize libcurl");
    }
    const std::string url = "http://" + endpoint.Address() + "/RPC2";
    curl_easy_setopt(handle.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_PROTOCOLS_STR, "http");
    curl_easy_setopt(handle.get(), CURLOPT_NOPROXY, "*");
    curl_easy_setopt(handle.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_TIMEOUT_MS, static_cast<long>(endpoint.timeout.count()));
    curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, Append);
    curl_easy_setopt(handle.get(), CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle.get(), CURLOPT_XFERINFOFUNCTION, IsStopped);
    curl_easy_setopt(handle.get(), CURLOPT_XFERINFODATA, &this->stop);
}

void HttpTransport::call(xmlrpc_c::carriageParm* /*carriageParm*/, const std::string& callXml,
                         std::string* responseXml) {
    failure = nullptr;
    try {
        Post(callXml, *responseXml);
    } catch (...) {
        failure = std::current_exception();
        throw;
    }
}

void HttpTransport::RethrowFailure() const {
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void HttpTransport::Post(const std::string& body, std::string& answer) {
    answer.clear();
    if (stop.stop_requested()) {  // libcurl might check only after sending
        throw Failure(ExitStatus::NoDaemon, endpoint.Address() + " was not called: interrupted");
    }
    curl_easy_setopt(handle.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(handle.get(), CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &answer);
    const CURLcode result = curl_easy_perform(handle.get());
    if (result != CURLE_OK) {
        throw ToFailure(result);
    }
    long status = 0;
    curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status != kHttpOk) {
        throw NotADaemon(endpoint, "HTTP status " + std::to_string(status));
    }
    if (MayDeclareEntities(answer)) {
        throw NotADaemon(endpoint, "the reply may declare XML entities");
    }
}

std::string HttpTransport::Reason() const {
    long error = 0;
    curl_easy_getinfo(handle.get(), CURLINFO_OS_ERRNO, &error);
    return error == 0 ? "" : ": " + std::generic_category().message(static_cast<int>(error));
}

Failure HttpTransport::ToFailure(int result) const {
    const auto code = static_cast<CURLcode>(result);
    switch (code) {
        case CURLE_OPERATION_TIMEDOUT:
            return {ExitStatus::NoDaemon,
                    endpoint.Address() + " did not answer within " + SecondsText(endpoint.timeout)};
        case CURLE_COULDNT_CONNECT:
            return {ExitStatus::NoDaemon, endpoint.Address() + " cannot be reached" + Reason()};
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_URL_MALFORMAT:
            return {ExitStatus::NoDaemon,
                    endpoint.Address() + " cannot be reached: " + curl_easy_strerror(code)};
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_WEIRD_SERVER_REPLY:
            return NotADaemon(endpoint, "the reply is not HTTP");
        case CURLE_WRITE_ERROR:    // by Append()
        case CURLE_OUT_OF_MEMORY:  // reported for an endless header
            return NotADaemon(endpoint, "the reply is too long");
        default:
            return {ExitStatus::NoDaemon,
                    endpoint.Address() + " did not answer: " + curl_easy_strerror(code)};
    }
}

}  // namespace tavrik
