#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

#include "for_other_programs/interface_setup.h"
#include "network/interface_state.h"

namespace psia {
namespace {

enum Answer : int { kGood = 0, kBadAddress = -1, kBadMask = -2, kBadGateway = -3 };

TEST(IpCheck, LooksAtTheMaskThenTheAddressThenTheGateway) {
  EXPECT_EQ(ip_check("nonsense", "nonsense", "nonsense"), kBadMask);
  EXPECT_EQ(ip_check("nonsense", "255.0.0.0", "nonsense"), kBadAddress);
  EXPECT_EQ(ip_check("1.2.3.4", "255.0.0.0", "1.2.3.x"), kBadGateway);
}

TEST(IpCheck, RefusesMasksThatHaveGapsOrLeaveNoHosts) {
  for (const char* mask : {"255.255.255.255", "0.0.0.0", "254.0.0.0", "255.0.255.0", "255.255.253.0"})
    EXPECT_EQ(ip_check("1.2.3.4", mask, "1.2.3.5"), kBadMask) << mask;
}

TEST(IpCheck, RefusesAGatewayOfAnotherNetworkAsABadAddress) {
  EXPECT_EQ(ip_check("192.168.1.10", "255.255.255.0", "192.168.2.1"), kBadAddress);
}

TEST(IpCheck, RefusesTheAddressOfTheNetworkAndTheBroadcastAddress) {
  using Network = std::array<const char*, 5>;  // mask, first address, two hosts, last address
  for (const auto& [mask, network, host, router, broadcast] :
       {Network{"255.0.0.0", "10.0.0.0", "10.0.0.255", "10.255.255.0", "10.255.255.255"},
        Network{"255.240.0.0", "172.16.0.0", "172.16.255.255", "172.31.0.0", "172.31.255.255"},
        Network{"255.255.252.0", "10.1.4.0", "10.1.4.255", "10.1.7.0", "10.1.7.255"},
        Network{"255.255.255.192", "10.1.1.64", "10.1.1.65", "10.1.1.126", "10.1.1.127"}}) {
    EXPECT_EQ(ip_check(host, mask, router), kGood) << mask;
    EXPECT_EQ(ip_check(network, mask, router), kBadAddress) << mask;
    EXPECT_EQ(ip_check(broadcast, mask, router), kBadAddress) << mask;
    EXPECT_EQ(ip_check(host, mask, network), kBadGateway) << mask;
    EXPECT_EQ(ip_check(host, mask, broadcast), kBadGateway) << mask;
  }
}

TEST(DottedQuad, TakesTheLowBytesOfFourNumbers) {
  EXPECT_EQ(parse_dotted_quad(" 1. 2.+300.-1 and more", OctetOrder::kFirstHighest), 0x01022CFFU);
}

TEST(DottedQuad, NeedsFourNumbersWithDotsBetweenThem) {
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

TEST(LinkLocal, IsDerivedFromTheHardwareAddressWithOneBitFlipped) {  // AB becomes A9
  EXPECT_STREQ(link_local_text("aB:cD:eF:0:1:fF").data(), "fe80:0000:0000:0000:a9cd:efff:fe00:01ff");
}

// Files of the kernel and of the resolver.

std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_of(const std::string& content) {
  std::FILE* const file = std::tmpfile();
  std::fputs(content.c_str(), file);
  std::rewind(file);
  return {file, std::fclose};
}

// The columns of a route are interface, destination and gateway, each address in the kernel's order.
std::uint32_t gateway_of_eth0(const std::string& routes) {
  return find_gateway(file_of(routes).get(), "eth0");
}

TEST(RouteTable, GivesTheFirstRouteWithAGatewayOfAnInterfaceWhoseNameBeginsSo) {
  EXPECT_EQ(gateway_of_eth0("eth0\n"
                            "eth0\tzz\tzz\n"
                            "eth0\t0001A8C0\t00000000\n"
                            "wlan-eth0\t00000000\tFC01A8C0\n"
                            "eth0.5\t00000000\tFE01A8C0\n"
                            "eth0\t00000000\tFD01A8C0\n"),
            0xFE01A8C0);
}

TEST(ResolverFile, GivesTwoServersAndTheFirstSearchDomainWithTheirLineFeeds) {
  const std::string content = "nameserver 1\nnameserver 2\nnameserver 3\nsearch a\nsearch b\n";
  const DnsServers servers = parse_dns_servers(file_of(content).get());
  EXPECT_STREQ(servers.primary.data(), "1\n");
  EXPECT_STREQ(servers.secondary.data(), "2\n");
  EXPECT_STREQ(parse_dns_search_domain(file_of(content).get()).data(), "a\n");
}

TEST(ResolverFile, TruncatesTextsTo31Characters) {
  const std::string longest(31, 'd');
  EXPECT_EQ(parse_dns_search_domain(file_of("search " + longest + "x\n").get()).data(), longest);
  EXPECT_EQ(parse_dns_servers(file_of("nameserver " + longest + "x\n").get()).primary.data(), longest);
}

}  // namespace
}  // namespace psia
