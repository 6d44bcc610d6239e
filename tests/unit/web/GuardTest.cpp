#include "web/Guard.h"

#include <gtest/gtest.h>

#include "client/Failure.h"

namespace {

using tavrik::Guard;
using tavrik::HttpRequest;

class GuardTest : public testing::Test {
protected:
    static HttpRequest Get(const std::string& path = "/") {
        HttpRequest request;
        request.method = "GET";
        request.path = path;
        request.headers = {{"host", "127.0.0.1:44280"}};
        return request;
    }

    static HttpRequest Post() {
        HttpRequest request = Get("/api/command");
        request.method = "POST";
        request.headers.insert({{"origin", "http://127.0.0.1:44280"},
                                {"content-type", "application/json"},
                                {"x-tavrik-page", "1"}});
        return request;
    }

    unsigned Status(const HttpRequest& request) const {
        const auto refusal = guard.Check(request);
        return refusal ? refusal->status : 0;
    }

    /// The status of the page's own request with another value of a header; without it if empty.
    unsigned StatusWith(const std::string& header, const std::string& value) const {
        HttpRequest request = Post();
        request.headers.erase(header);
        if (!value.empty()) {
            request.headers.emplace(header, value);
        }
        return Status(request);
    }

    const Guard guard{Guard::OriginsOf({})};
};

TEST_F(GuardTest, LetsThePageThrough) {
    EXPECT_EQ(Status(Get()), 0U);
    EXPECT_EQ(Status(Post()), 0U);
    EXPECT_EQ(StatusWith("sec-fetch-site", "same-origin"), 0U);
}

TEST_F(GuardTest, RefusesAnotherHost) {
    for (const std::string host :
         {"", "evil.example", "127.0.0.1", "127.0.0.1:44281", "localhost"}) {
        EXPECT_EQ(StatusWith("host", host), 403U) << host;
    }
    EXPECT_EQ(StatusWith("host", "localhost:44280"), 0U);
}

TEST_F(GuardTest, RefusesTwoHosts) {
    HttpRequest request = Get();
    request.headers.emplace("host", "127.0.0.1:44280");
    EXPECT_EQ(Status(request), 403U);
}

TEST_F(GuardTest, RefusesAnotherOrigin) {
    for (const std::string origin : {"", "null", "http://evil.example", "https://127.0.0.1:44280",
                                     "http://127.0.0.1:44280/", "HTTP://127.0.0.1:44280"}) {
        EXPECT_EQ(StatusWith("origin", origin), 403U) << origin;
    }
}

TEST_F(GuardTest, RefusesAPostWithoutThePagesHeader) {
    EXPECT_EQ(StatusWith("x-tavrik-page", ""), 403U);
}

TEST_F(GuardTest, RefusesTheContentTypesOfForms) {
    for (const std::string type : {"", "text/plain", "application/x-www-form-urlencoded",
                                   "multipart/form-data", "application/json;x"}) {
        EXPECT_EQ(StatusWith("content-type", type), 403U) << type;
    }
}

TEST_F(GuardTest, RefusesWhatAnotherPageLoads) {
    EXPECT_EQ(StatusWith("sec-fetch-site", "cross-site"), 403U);
    HttpRequest request = Get("/events");
    request.headers.emplace("sec-fetch-site", "same-site");
    request.headers.emplace("sec-fetch-mode", "navigate");
    EXPECT_EQ(Status(request), 403U);
    request.path = "/";
    EXPECT_EQ(Status(request), 0U);
}

TEST_F(GuardTest, RefusesOtherMethodsAndManyHeaders) {
    HttpRequest request = Get();
    request.method = "OPTIONS";
    EXPECT_EQ(Status(request), 405U);
    request = Get();
    for (int i = 0; i < 50; ++i) {
        request.headers.emplace("x-" + std::to_string(i), "");
    }
    EXPECT_EQ(Status(request), 431U);
}

TEST_F(GuardTest, ServesOnlyItsOwnAddressesByDefault) {
    EXPECT_TRUE(Guard::OriginsOf({"192.0.2.1", 80}).empty());
    const Guard other({"https://cell.example"});
    HttpRequest request = Get();
    EXPECT_TRUE(other.Check(request));
    request.headers = {{"host", "cell.example"}};
    EXPECT_FALSE(other.Check(request));
}

TEST_F(GuardTest, ServesUnderTheAddressItListensOn) {
    using Origins = std::vector<std::string>;
    EXPECT_EQ(Guard::OriginsOf({"127.0.0.2", 44280}), Origins{"http://127.0.0.2:44280"});
    EXPECT_EQ(Guard::OriginsOf({"::1", 1}), (Origins{"http://[::1]:1", "http://localhost:1"}));
    EXPECT_EQ(Guard::OriginsOf({"127.0.0.1", 80}),
              (Origins{"http://127.0.0.1:80", "http://localhost:80", "http://127.0.0.1",
                       "http://localhost"}));
}

TEST_F(GuardTest, RefusesOriginsThatNoBrowserSends) {
    for (const std::string origin : {"", "cell.example", "ftp://cell", "http://", "https://a/b",
                                     "http://user@a", "http://a b"}) {
        EXPECT_THROW(Guard({origin}), tavrik::Failure) << origin;
    }
}

}  // namespace
