#include "cvtelemetry.h"

#include <cerrno>
#include <chrono>
#include <cmath>
#include <deque>
#include <filesystem>
#include <limits>
#include <string>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "UniqueFd.h"
#include "hostconf.h"

namespace {

/// The errors of the next calls of sendto; 0 lets one through.
std::deque<int> nextFailures;

/// The error of all calls after those; 0 lets them through.
int standingFailure = 0;

} // namespace

extern "C" {
ssize_t __real_sendto(int fd, const void* bytes, std::size_t size, int flags, const sockaddr* to, socklen_t length);
ssize_t __wrap_sendto(int fd, const void* bytes, std::size_t size, int flags, const sockaddr* to, socklen_t length);

ssize_t __wrap_sendto(int fd, const void* bytes, std::size_t size, int flags, const sockaddr* to, socklen_t length) {
    int failure = standingFailure;
    if (!nextFailures.empty()) {
        failure = nextFailures.front();
        nextFailures.pop_front();
    }
    if (failure == 0) {
        return __real_sendto(fd, bytes, size, flags, to, length);
    }
    errno = failure;
    return -1;
}
}

namespace {

/// A StatsD server on the loopback device.
class Listener {
  public:
    explicit Listener(std::uint16_t port = 0) : m_fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::bind(m_fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        socklen_t length = sizeof address;
        EXPECT_EQ(::getsockname(m_fd.get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
        m_port = ntohs(address.sin_port);
    }

    [[nodiscard]] std::uint16_t port() const { return m_port; }
    [[nodiscard]] std::string address() const { return "127.0.0.1:" + std::to_string(m_port); }

    /// The next datagram; on the loopback device it is there as soon as it was sent. Empty when there is none.
    [[nodiscard]] std::string next() const {
        char text[1024];
        const ssize_t got = ::recv(m_fd.get(), text, sizeof text, MSG_DONTWAIT);
        return got < 0 ? "" : std::string(text, static_cast<std::size_t>(got));
    }

  private:
    UniqueFd m_fd;
    std::uint16_t m_port = 0;
};

class Telemetry : public testing::Test {
  protected:
    void SetUp() override {
        nextFailures.clear();
        standingFailure = 0;
        ASSERT_EQ(cvtelemetry_init(&handle, listener.address().c_str(), nullptr), 0);
    }
    void TearDown() override {
        standingFailure = 0;
        EXPECT_EQ(cvtelemetry_destroy(handle), 0);
    }

    Listener listener;
    cvtelemetry_t handle = nullptr;
};

TEST_F(Telemetry, GaugeIsOneStatsdLine) {
    EXPECT_EQ(cvtelemetry_gauge(handle, "cvstop.kill", 1.0), 0);
    EXPECT_EQ(listener.next(), "cvstop.kill:1|g");
    EXPECT_EQ(cvtelemetry_gauge(handle, "cvstop.kill", 0.25), 0);
    EXPECT_EQ(listener.next(), "cvstop.kill:0.25|g");
    EXPECT_EQ(cvtelemetry_flush(handle), 0);
    EXPECT_EQ(listener.next(), "");
}

TEST_F(Telemetry, NegativeGaugeIsNoDecrement) {
    EXPECT_EQ(cvtelemetry_gauge(handle, "x", -2.0), 0);
    EXPECT_EQ(listener.next(), "x:0|g\nx:-2|g");
}

TEST_F(Telemetry, PrefixStandsBeforeTheName) {
    cvtelemetry_t other = nullptr;
    ASSERT_EQ(cvtelemetry_init(&other, listener.address().c_str(), "db7."), 0);
    EXPECT_EQ(cvtelemetry_gauge(other, "cvstop.list", 1.0), 0);
    EXPECT_EQ(listener.next(), "db7.cvstop.list:1|g");
    cvtelemetry_destroy(other);
}

TEST_F(Telemetry, InvalidGaugesAreRefused) {
    for (const char* name : {"", "a:b", "a|b", "a@b", "a#b", "a\nb"}) {
        EXPECT_EQ(cvtelemetry_gauge(handle, name, 1.0), EINVAL) << name;
    }
    EXPECT_EQ(cvtelemetry_gauge(handle, nullptr, 1.0), EINVAL);
    EXPECT_EQ(cvtelemetry_gauge(handle, "x", std::nan("")), EINVAL);
    EXPECT_EQ(cvtelemetry_gauge(handle, "x", std::numeric_limits<double>::infinity()), EINVAL);
    EXPECT_EQ(cvtelemetry_gauge(handle, std::string(600, 'x').c_str(), 1.0), EMSGSIZE);
    EXPECT_EQ(listener.next(), "");
}

TEST_F(Telemetry, SocketNeverBlocksAndIsNotInherited) {
    int sockets = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename());
        int type = 0;
        socklen_t length = sizeof type;
        if (::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length) == 0 && type == SOCK_DGRAM) {
            EXPECT_TRUE(::fcntl(fd, F_GETFD) & FD_CLOEXEC);
            sockets += (::fcntl(fd, F_GETFL) & O_NONBLOCK) != 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(sockets, 1);
}

TEST_F(Telemetry, WhatTheKernelDidNotTakeIsSentLaterInOrder) {
    nextFailures = {EAGAIN, ENOBUFS};
    EXPECT_EQ(cvtelemetry_gauge(handle, "x", 1.0), 0);
    EXPECT_EQ(cvtelemetry_gauge(handle, "x", 2.0), 0);
    EXPECT_EQ(listener.next(), "");
    nextFailures = {EAGAIN, ENOBUFS, EINTR, 0, EAGAIN};
    EXPECT_EQ(cvtelemetry_flush(handle), 0);
    EXPECT_EQ(listener.next(), "x:1|g");
    EXPECT_EQ(listener.next(), "x:2|g");
    EXPECT_EQ(listener.next(), "");
}

TEST_F(Telemetry, NextGaugeSendsTheKeptOnesFirst) {
    nextFailures = {EAGAIN};
    EXPECT_EQ(cvtelemetry_gauge(handle, "x", 1.0), 0);
    EXPECT_EQ(cvtelemetry_gauge(handle, "x", 2.0), 0);
    EXPECT_EQ(listener.next(), "x:1|g");
    EXPECT_EQ(listener.next(), "x:2|g");
}

TEST_F(Telemetry, FlushGivesUpAfter100Milliseconds) {
    standingFailure = ENOBUFS;
    EXPECT_EQ(cvtelemetry_gauge(handle, "x", 1.0), 0);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(cvtelemetry_flush(handle), ENOBUFS);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(99));
}

TEST_F(Telemetry, FlushDoesNotWaitForAnErrorThatStays) {
    standingFailure = ENETUNREACH;
    EXPECT_EQ(cvtelemetry_gauge(handle, "x", 1.0), 0);
    nextFailures = {ENETUNREACH};
    standingFailure = 0;
    EXPECT_EQ(cvtelemetry_flush(handle), ENETUNREACH);
    EXPECT_EQ(cvtelemetry_flush(handle), 0);
    EXPECT_EQ(listener.next(), "x:1|g");
}

TEST_F(Telemetry, KeepsNoMoreThan64) {
    standingFailure = EAGAIN;
    for (int value = 1; value <= 100; ++value) {
        EXPECT_EQ(cvtelemetry_gauge(handle, "x", value), 0);
    }
    standingFailure = 0;
    EXPECT_EQ(cvtelemetry_flush(handle), 0);
    for (int value = 37; value <= 100; ++value) {
        EXPECT_EQ(listener.next(), "x:" + std::to_string(value) + "|g");
    }
    EXPECT_EQ(listener.next(), "");
}

TEST_F(Telemetry, DestroyDropsWhatIsKept) {
    cvtelemetry_t other = nullptr;
    ASSERT_EQ(cvtelemetry_init(&other, listener.address().c_str(), nullptr), 0);
    standingFailure = EAGAIN;
    EXPECT_EQ(cvtelemetry_gauge(other, "x", 1.0), 0);
    standingFailure = 0;
    EXPECT_EQ(cvtelemetry_destroy(other), 0);
    EXPECT_EQ(listener.next(), "");
}

TEST(TelemetryWithoutListener, IsNoErrorAndIsHeardOnceThereIsOne) {
    std::uint16_t port = 0;
    cvtelemetry_t handle = nullptr;
    {
        const Listener gone;
        port = gone.port();
    }
    ASSERT_EQ(cvtelemetry_init(&handle, ("127.0.0.1:" + std::to_string(port)).c_str(), nullptr), 0);
    for (int value = 0; value < 3; ++value) {
        EXPECT_EQ(cvtelemetry_gauge(handle, "x", value), 0);
        EXPECT_EQ(cvtelemetry_flush(handle), 0);
    }
    const Listener listener(port);
    EXPECT_EQ(cvtelemetry_gauge(handle, "x", 7.0), 0);
    EXPECT_EQ(listener.next(), "x:7|g");
    cvtelemetry_destroy(handle);
}

TEST(TelemetryAddress, IsNumericOrRefused) {
    int unset = 0;
    for (const char* address : {"localhost:8125", "127.0.0.1"}) {
        auto* handle = reinterpret_cast<cvtelemetry_t>(&unset);
        EXPECT_EQ(cvtelemetry_init(&handle, address, nullptr), EINVAL) << address;
        EXPECT_EQ(handle, nullptr) << address;
    }
    EXPECT_EQ(cvtelemetry_init(nullptr, nullptr, nullptr), EINVAL);
}

TEST(TelemetryHandle, NullIsAccepted) {
    EXPECT_EQ(cvtelemetry_gauge(nullptr, "x", 1.0), 0);
    EXPECT_EQ(cvtelemetry_flush(nullptr), 0);
    EXPECT_EQ(cvtelemetry_destroy(nullptr), 0);
}

TEST(TelemetryDefaults, AreTheHostConfigurations) {
    const Listener listener;
    hostconf::Outcome outcome = hostconf::parse("[host]\nrole=client\n", "db7");
    ASSERT_EQ(hostconf::adopt(outcome), 0);
    cvtelemetry_t handle = nullptr;
    ASSERT_EQ(cvtelemetry_init(&handle, nullptr, nullptr), 0);
    EXPECT_EQ(cvtelemetry_gauge(handle, "cvstop.help", 1.0), 0);
    EXPECT_EQ(cvtelemetry_flush(handle), 0);
    cvtelemetry_destroy(handle);

    outcome.config.statsd = listener.address();
    ASSERT_EQ(hostconf::adopt(outcome), 0);
    ASSERT_EQ(cvtelemetry_init(&handle, nullptr, nullptr), 0);
    EXPECT_EQ(cvtelemetry_gauge(handle, "cvstop.help", 1.0), 0);
    EXPECT_EQ(listener.next(), "cvstop.help:1|g");
    cvtelemetry_destroy(handle);
}

} // namespace
