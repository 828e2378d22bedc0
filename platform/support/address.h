/// Numeric network addresses, as the host configuration and the telemetry library take them.
#pragma once

#include <string_view>

#include <sys/socket.h>

struct NumericAddress {
    sockaddr_storage storage{};
    socklen_t length = 0;
};

/// Reads "192.0.2.1:8125" or "[2001:db8::1]:8125"; the port is 1 to 65535. Never looks a name up. Returns false for
/// every other text.
bool parseNumericAddress(std::string_view text, NumericAddress& address);
