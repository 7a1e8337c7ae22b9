#include "demo/camera_client.h"

#include <gtest/gtest.h>
#include <poll.h>

#include "canned_server.h"

namespace {

TEST(CameraClient, AsksAndSends) {
    CannedServer server(CannedServer::saying("17"));
    const std::atomic<bool> givenUp = false;
    const CameraClient client(server.address(), "leader", "secret", givenUp);
    EXPECT_EQ(client.get("get_status_code"), "17");
    EXPECT_FALSE(CameraClient("127.0.0.1:1", "leader", "secret", givenUp).post("set_post_parameters", "x"));
}

TEST(CameraClient, WaitsNoLongerForACameraOnceItIsGivenUp) {
    std::atomic<bool> givenUp = false;
    bool hungUp = false;
    {
        CannedServer silent([&](int connection, const std::string&) {
            givenUp = true;
            pollfd client = {connection, POLLIN | POLLRDHUP, 0};
            hungUp = poll(&client, 1, 4000) == 1;  // it would wait for five seconds
            return false;
        });
        EXPECT_EQ(CameraClient(silent.address(), "leader", "secret", givenUp).get("get_status_code"), "");
    }
    EXPECT_TRUE(hungUp);
}

}  // namespace
