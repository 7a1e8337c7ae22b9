#include "web/fastcgi_socket.h"

#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "log_capture.h"

namespace {

std::atomic<int> g_bindError = 0;  // what bind says instead of binding; 0: nothing

TEST(FastCgiSocket, ThatCannotBeBoundIsTold) {
    const LogCapture log;
    for (const int error : {ENOSPC, EDQUOT, EACCES, EADDRINUSE}) {
        applicationLog().clear();
        g_bindError = error;
        EXPECT_EQ(openFastCgiSocket(log.folder() / "service.socket", 5), -1);
        g_bindError = 0;
        EXPECT_EQ(LogCapture::ofLevel("error"),
                  std::vector<std::string>{"init: cannot open a socket in " + log.folder().string() + ": " +
                                           strerror(error)});
    }
}

TEST(FastCgiSocket, TakesTheNameOfOneThatWasLeftBehind) {
    const LogCapture log;
    const int left = openFastCgiSocket(log.folder() / "service.socket", 5);
    ASSERT_GE(left, 0);
    const int socket = openFastCgiSocket(log.folder() / "service.socket", 5);
    EXPECT_GE(socket, 0);
    close(left);
    close(socket);
    EXPECT_EQ(LogCapture::ofLevel("error"), std::vector<std::string>{});
}

}  // namespace

/** Stands before the system's call, for every library. */
extern "C" int bind(int socket, const sockaddr* address, socklen_t size) noexcept {
    if (g_bindError != 0) {
        errno = g_bindError;
        return -1;
    }
    using Bind = int (*)(int, const sockaddr*, socklen_t);
    static const auto real = reinterpret_cast<Bind>(dlsym(RTLD_NEXT, "bind"));
    return real(socket, address, size);
}
