#include "address.h"

#include <string_view>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <gtest/gtest.h>

namespace {

TEST(NumericAddress, BothVersionsAreRead) {
    NumericAddress address;
    ASSERT_TRUE(parseNumericAddress("192.0.2.1:8125", address));
    EXPECT_EQ(address.storage.ss_family, AF_INET);
    EXPECT_EQ(address.length, sizeof(sockaddr_in));
    const auto& version4 = reinterpret_cast<const sockaddr_in&>(address.storage);
    EXPECT_EQ(version4.sin_port, htons(8125));
    EXPECT_EQ(version4.sin_addr.s_addr, htonl(0xC0000201));
    ASSERT_TRUE(parseNumericAddress("[2001:db8::1]:65535", address));
    EXPECT_EQ(address.storage.ss_family, AF_INET6);
    EXPECT_EQ(address.length, sizeof(sockaddr_in6));
    const auto& version6 = reinterpret_cast<const sockaddr_in6&>(address.storage);
    EXPECT_EQ(version6.sin6_port, htons(65535));
    char text[INET6_ADDRSTRLEN] = "";
    EXPECT_STREQ(::inet_ntop(AF_INET6, &version6.sin6_addr, text, sizeof text), "2001:db8::1");
}

TEST(NumericAddress, EverythingElseIsRefused) {
    using namespace std::string_view_literals;
    NumericAddress address;
    for (const std::string_view text :
         {""sv, "localhost:8125"sv, "127.0.0.1"sv, "127.0.0.1:"sv, "127.0.0.1:0"sv, "127.0.0.1:65536"sv,
          "127.0.0.1:x"sv, "127.0.0.1:81 "sv, "127.0.0.1:+81"sv, "::1:8125"sv, "[::1]"sv, "[127.0.0.1]:1"sv, "[]:1"sv,
          "[:1"sv, ":8125"sv, "1.2.3:1"sv, "[fe80::1%lo]:1"sv, "1.2.3.4\0:1"sv}) {
        EXPECT_FALSE(parseNumericAddress(text, address)) << text;
    }
}

} // namespace
