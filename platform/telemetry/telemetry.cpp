#include "cvtelemetry.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

#include <poll.h>
#include <sys/socket.h>

#include "UniqueFd.h"
#include "address.h"
#include "cvbase.h"

/// A socket that is not connected: the kernel reports "port unreachable" on connected ones only, in place of the send
/// that comes after, udp(7).
struct cvtelemetry {
    /// None where no address is configured; gauges go nowhere then.
    UniqueFd socket;
    NumericAddress address;
    std::string prefix;
    /// What the kernel did not take, oldest first.
    std::deque<std::string> kept;
};

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kFlushTime{100};

constexpr std::size_t kMaxKept = 64;

/// A datagram of this size is never split on the way, whatever the network.
constexpr std::size_t kMaxDatagram = 512;

/// The bytes that have a meaning in a StatsD line.
bool isGoodName(std::string_view name) {
    return !name.empty() && name.find_first_of(":|@#\n") == std::string_view::npos;
}

/// "5", the shortest text that reads back as the same value; never the locale's decimal comma.
std::string numberText(double value) {
    std::array<char, 32> text{};
    const auto result = std::to_chars(text.data(), text.data() + text.size(), value);
    return {text.data(), result.ptr};
}

/// "cvstop.kill:1|g". A sign would mean a change of the gauge, so a negative value comes after a zero.
std::string gaugeLine(const std::string& name, double value) {
    const std::string line = name + ':' + numberText(value) + "|g";
    return std::signbit(value) ? name + ":0|g\n" + line : line;
}

/// Returns 0 or the errno value with which the kernel did not take the datagram.
int sendOnce(const cvtelemetry& handle, const std::string& datagram) {
    const ssize_t sent = ::sendto(handle.socket.get(), datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                                  reinterpret_cast<const sockaddr*>(&handle.address.storage), handle.address.length);
    return sent < 0 ? errno : 0;
}

/// Sends in order until the kernel takes no more. Returns its errno value, 0 when nothing is kept any more.
int sendKept(cvtelemetry& handle) {
    while (!handle.kept.empty()) {
        const int failure = sendOnce(handle, handle.kept.front());
        if (failure != 0) {
            return failure;
        }
        handle.kept.pop_front();
    }
    return 0;
}

/// Whether waiting a moment may help: full buffers empty themselves, a missing route does not come back.
bool isPassing(int failure) {
    return failure == EAGAIN || failure == ENOBUFS || failure == ENOMEM || failure == EINTR;
}

/// With full device queues (ENOBUFS) the socket stays writable, so that poll would not wait.
void waitForRoom(const cvtelemetry& handle, int failure, int milliseconds) {
    pollfd writable{handle.socket.get(), POLLOUT, 0};
    if (failure == EAGAIN) {
        ::poll(&writable, 1, milliseconds);
    } else {
        ::poll(nullptr, 0, 1);
    }
}

int openSocket(cvtelemetry& handle, const std::string& address) {
    if (address.empty()) {
        return 0;
    }
    if (!parseNumericAddress(address, handle.address)) {
        return EINVAL;
    }
    handle.socket.reset(::socket(handle.address.storage.ss_family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return handle.socket ? 0 : errno;
}

} // namespace

int cvtelemetry_init(cvtelemetry_t* handle, const char* address, const char* prefix) {
    if (handle == nullptr) {
        return EINVAL;
    }
    *handle = nullptr;
    auto opened = std::make_unique<cvtelemetry>();
    opened->prefix = prefix == nullptr ? "" : prefix;
    const int failure = openSocket(*opened, address == nullptr ? get_master_config_ptr()->statsd : address);
    if (failure == 0) {
        *handle = opened.release();
    }
    return failure;
}

int cvtelemetry_gauge(cvtelemetry_t handle, const char* name, double value) {
    if (handle == nullptr) {
        return 0;
    }
    const std::string whole = handle->prefix + (name == nullptr ? "" : name);
    if (name == nullptr || *name == '\0' || !isGoodName(whole) || !std::isfinite(value)) {
        return EINVAL;
    }
    const std::string datagram = gaugeLine(whole, value);
    if (datagram.size() > kMaxDatagram) {
        return EMSGSIZE;
    }
    if (!handle->socket) {
        return 0;
    }
    if (handle->kept.size() == kMaxKept) {
        handle->kept.pop_front();
    }
    // Behind what is kept: of two values of a gauge the later one must arrive last.
    handle->kept.push_back(datagram);
    sendKept(*handle);
    return 0;
}

int cvtelemetry_flush(cvtelemetry_t handle) {
    if (handle == nullptr) {
        return 0;
    }
    const Clock::time_point end = Clock::now() + kFlushTime;
    while (true) {
        const int failure = sendKept(*handle);
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        if (!isPassing(failure) || left <= 0) {
            return failure;
        }
        waitForRoom(*handle, failure, static_cast<int>(left));
    }
}

int cvtelemetry_destroy(cvtelemetry_t handle) {
    delete handle;
    return 0;
}
