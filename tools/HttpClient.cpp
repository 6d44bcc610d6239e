#include "tools/HttpClient.h"

#include <curl/curl.h>

#include <sstream>
#include <stdexcept>
#include <utility>

#include "tools/Failure.h"

namespace tavrikctl {

namespace {

constexpr std::size_t kLargestAnswer = 1U << 20U;  // bytes
constexpr long kHttpOk = 200;

/// Taking less than was offered makes libcurl give up.
std::size_t Append(const char* data, std::size_t size, std::size_t count, void* target) {
    auto& answer = *static_cast<std::string*>(target);
    const std::size_t length = size * count;
    if (answer.size() + length > kLargestAnswer) {
        return 0;
    }
    answer.append(data, length);
    return length;
}

/// libcurl asks this while it works and waits, at least once a second; anything but 0 makes it
/// stop.
int IsStopped(const void* token, curl_off_t /*total*/, curl_off_t /*received*/,
              curl_off_t /*toSend*/, curl_off_t /*sent*/) {
    return static_cast<const std::stop_token*>(token)->stop_requested() ? 1 : 0;
}

std::string SecondsText(std::chrono::milliseconds time) {
    std::ostringstream text;
    text << std::chrono::duration<double>(time).count() << " s";
    return text.str();
}

}  // namespace

void HttpClient::Deleter::operator()(void* handle) const {
    curl_easy_cleanup(handle);
}

void HttpClient::Deleter::operator()(curl_slist* list) const {
    curl_slist_free_all(list);
}

HttpClient::HttpClient(const std::string& url, std::chrono::milliseconds timeout,
                       std::stop_token stop)
    : address(url),
      stopToken(std::move(stop)),
      timeLimit(timeout),
      headers(curl_slist_append(nullptr, "Content-Type: text/xml")),
      handle(curl_easy_init()) {
    if (handle == nullptr || headers == nullptr) {
        throw std::runtime_error("libcurl cannot be used");
    }
    curl_easy_setopt(handle.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_PROTOCOLS_STR, "http");
    curl_easy_setopt(handle.get(), CURLOPT_NOPROXY, "*");
    curl_easy_setopt(handle.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle.get(), CURLOPT_TIMEOUT_MS, static_cast<long>(timeout.count()));
    curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, Append);
    curl_easy_setopt(handle.get(), CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle.get(), CURLOPT_XFERINFOFUNCTION, IsStopped);
    curl_easy_setopt(handle.get(), CURLOPT_XFERINFODATA, &stopToken);
}

std::string HttpClient::Post(const std::string& body) {
    std::string answer;
    curl_easy_setopt(handle.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(handle.get(), CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &answer);
    const CURLcode result = curl_easy_perform(handle.get());
    if (result == CURLE_OPERATION_TIMEDOUT) {
        throw Failure(ExitStatus::NoDaemon,
                      address + " has not answered within " + SecondsText(timeLimit));
    }
    if (result == CURLE_WRITE_ERROR) {
        throw Failure(ExitStatus::BadAnswer, address + " is no TavrikDaemon: too long an answer");
    }
    if (result != CURLE_OK) {
        throw Failure(ExitStatus::NoDaemon,
                      address + " cannot be reached: " + curl_easy_strerror(result));
    }
    long status = 0;
    curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status != kHttpOk) {
        throw Failure(ExitStatus::BadAnswer,
                      address + " is no TavrikDaemon: HTTP status " + std::to_string(status));
    }
    return answer;
}

}  // namespace tavrikctl
