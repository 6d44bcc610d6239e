#include "client/Daemon.h"

#include <gtest/gtest.h>

#include "tests/unit/client/ExpectFailure.h"

namespace tavrik {
namespace {

TEST(DaemonTest, NoCallFollowsAnInterruption) {
    Endpoint endpoint;
    endpoint.port = 1;  // nobody listens: a call would say so
    std::stop_source stop;
    Daemon daemon(endpoint, stop.get_token());
    stop.request_stop();
    EXPECT_FAILURE(daemon.Get<int>("Disable"), NoDaemon, "127.0.0.1:1 was not called: interrupted");
}

}  // namespace
}  // namespace tavrik
