#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "for_other_programs/interface_setup.h"
#include "network/interface_state.h"

namespace psia {
namespace {

std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_of(const std::string& content) {
  std::FILE* const file = std::tmpfile();
  std::fputs(content.c_str(), file);
  std::rewind(file);
  return {file, std::fclose};
}

TEST(IpCheck, GivesTheCodeOfTheFirstTextThatDoesNotFit) {
  EXPECT_EQ(ip_check("nonsense", "nonsense", "nonsense"), -2);
  EXPECT_EQ(ip_check("nonsense", "255.0.0.0", "nonsense"), -1);
  EXPECT_EQ(ip_check("1.2.3.4", "255.0.0.0", "1.2.3.x"), -3);
  for (const char* mask : {"255.255.255.255", "0.0.0.0", "254.0.0.0", "255.0.255.0", "255.255.253.0"})
    EXPECT_EQ(ip_check("1.2.3.4", mask, "1.2.3.5"), -2) << mask;
  EXPECT_EQ(ip_check("192.168.1.10", "255.255.255.0", "192.168.2.1"), -1);
}

// What the octet rules mean: the host part must be neither all zeros nor all ones.
TEST(IpCheck, RefusesNetworkAndBroadcastAddressesOfEveryMaskLength) {
  const auto quad = [](std::uint32_t number) { return std::string(inet_ntoa({htonl(number)})); };
  for (int length = 8; length <= 31; ++length) {
    const std::uint32_t mask = ~0U << (32 - length);
    const std::uint32_t network = 0x0A55AAC3U & mask;
    const std::uint32_t last = ~mask;
    const auto is_edge = [&](std::uint32_t host) { return host == 0 || host == last; };
    const std::uint32_t hosts[] = {0, 1, last - 1, last, 255 & last, 256 & last};
    for (const std::uint32_t host : hosts) {
      for (const std::uint32_t router : hosts) {
        const std::string address = quad(network | host);
        const std::string gateway = quad(network | router);
        const int expected = is_edge(host) ? -1 : is_edge(router) ? -3 : 0;
        EXPECT_EQ(ip_check(address.c_str(), quad(mask).c_str(), gateway.c_str()), expected)
            << address << '/' << length << " through " << gateway;
      }
    }
  }
}

TEST(DottedQuad, TakesTheLowBytesOfFourNumbers) {
  EXPECT_EQ(parse_dotted_quad(" 1. 2.+300.-1 and more", OctetOrder::kFirstHighest), 0x01022CFFU);
  for (const char* text : {"1.2.3.", "1.2 .3.4", ""})
    EXPECT_FALSE(parse_dotted_quad(text, OctetOrder::kFirstHighest)) << text;
}

TEST(AddressTexts, ParseAndPrintBothFamilies) {
  const auto reprinted = [](const char* text) {
    const sockaddr_storage address = parse_address(text).value_or(sockaddr_storage{});
    return std::string(socket_address_text(address).value_or(AddressText{"no address"}).data());
  };
  EXPECT_EQ(reprinted("fe80:0::0211:22ff:fe33:4455"), "fe80::211:22ff:fe33:4455");
  EXPECT_EQ(reprinted("::ffff:192.168.1.10"), "192.168.1.10");
  EXPECT_EQ(reprinted("fe80::1%eth0"), "no address");
}

TEST(LinkLocal, IsDerivedFromTheHardwareAddress) {
  EXPECT_STREQ(link_local_text("aB:cD:eF:0:1:fF").data(), "fe80:0000:0000:0000:a9cd:efff:fe00:01ff");
}

// The kernel prints numbers.
TEST(RouteTable, GivesTheFirstGatewayOfTheInterface) {
  const auto gateway_in = [](const std::string& table) { return find_gateway(file_of(table).get(), "eth0"); };
  EXPECT_EQ(gateway_in("eth0\t0001A8C0\t00000000\t0001\neth0\t00000000\tFE01A8C0\t0003\n"), 0xFE01A8C0);
  EXPECT_EQ(gateway_in("wlan-eth0\t00000000\t0101A8C0\n"), kNoAddress);
  EXPECT_EQ(gateway_in("eth0.5\t00000000\t0101A8C0\t0003"), 0x0101A8C0U);
  EXPECT_EQ(gateway_in("eth0\t00000000\t00000000000000011\n"), 1U);  // 16 characters of a column count
  EXPECT_EQ(gateway_in("eth0\neth0\t\neth0\t0101A8C0\neth0\tzz\tzz"), kNoAddress);
  EXPECT_EQ(gateway_in("eth0\t00000000\t123456789\neth0\t00000000\t0101A8C0\n"), kNoAddress);
}

TEST(ResolverFile, GivesServersAndSearchDomainAsTheyStand) {
  const auto texts_in = [](const std::string& content) {
    const DnsServers servers = parse_dns_servers(file_of(content).get());
    const ResolverText search = parse_dns_search_domain(file_of(content).get());
    return std::string(servers.primary.data()) + '|' + servers.secondary.data() + '|' + search.data();
  };
  EXPECT_EQ(texts_in("nameserver 1\nnameserver 2\nnameserver 3\nsearch a\nsearch b\n"), "1\n|2\n|a\n");
  EXPECT_EQ(texts_in("search 0123456789012345678901234567890x\n"), "||0123456789012345678901234567890");
}

}  // namespace
}  // namespace psia
