#include "address.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace {

bool parsePort(std::string_view text, std::uint16_t& port) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, port);
    return result.ec == std::errc() && result.ptr == end && port != 0;
}

/// memcpy, because a sockaddr_storage may not be written through a pointer to another type.
template <class Sockaddr> void store(const Sockaddr& from, NumericAddress& address) {
    address = {};
    std::memcpy(&address.storage, &from, sizeof from);
    address.length = sizeof from;
}

bool parseVersion4(const std::string& host, std::uint16_t port, NumericAddress& address) {
    sockaddr_in parsed{};
    parsed.sin_family = AF_INET;
    parsed.sin_port = htons(port);
    if (::inet_pton(AF_INET, host.c_str(), &parsed.sin_addr) != 1) {
        return false;
    }
    store(parsed, address);
    return true;
}

bool parseVersion6(const std::string& host, std::uint16_t port, NumericAddress& address) {
    sockaddr_in6 parsed{};
    parsed.sin6_family = AF_INET6;
    parsed.sin6_port = htons(port);
    if (::inet_pton(AF_INET6, host.c_str(), &parsed.sin6_addr) != 1) {
        return false;
    }
    store(parsed, address);
    return true;
}

} // namespace

bool parseNumericAddress(std::string_view text, NumericAddress& address) {
    const std::size_t colon = text.rfind(':');
    std::uint16_t port = 0;
    // A NUL within the text would end it early for inet_pton.
    if (colon == std::string_view::npos || text.find('\0') != std::string_view::npos ||
        !parsePort(text.substr(colon + 1), port)) {
        return false;
    }
    const std::string_view host = text.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        return parseVersion6(std::string(host.substr(1, host.size() - 2)), port, address);
    }
    return parseVersion4(std::string(host), port, address);
}
