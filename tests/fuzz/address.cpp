// A numeric address and port.

#include <netinet/in.h>

#include "Fuzz.h"
#include "address.h"

FUZZ_TARGET(input) {
    NumericAddress address;
    if (!parseNumericAddress(input, address)) {
        return;
    }
    const bool isV6 = address.storage.ss_family == AF_INET6;
    demand(isV6 || address.storage.ss_family == AF_INET, "an address has a family");
    demand(address.length == (isV6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in)), "an address has its family's length");
    const auto port = isV6 ? reinterpret_cast<const sockaddr_in6&>(address.storage).sin6_port
                           : reinterpret_cast<const sockaddr_in&>(address.storage).sin_port;
    demand(port != 0 && input.find(':') != std::string_view::npos, "a port was given");
}
