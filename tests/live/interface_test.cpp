// The address utilities against the real kernel, on the veth named eth0 of a private network.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "for_other_programs/interface_setup.h"
#include "network/interface_state.h"

namespace psia {
namespace {

std::uint32_t address_of(const char* text) {
  return parse_dotted_quad(text, OctetOrder::kFirstLowest).value_or(kNoAddress);
}

/// What ip(8) prints for the commands, one a line.
std::string ip(const std::string& commands) {
  // NOLINTNEXTLINE(cert-env33-c): a fixed program of the test system.
  std::FILE* const output = popen(("ip -batch - <<end\n" + commands + "\nend\n").c_str(), "r");
  std::array<char, 1000> text{};
  const std::size_t size = std::fread(text.data(), 1, text.size(), output);
  EXPECT_EQ(pclose(output), 0) << commands;
  return {text.data(), size};
}

class InterfaceTest : public testing::Test {
 protected:
  void SetUp() override {
    ip("link set eth0 down\nlink set eth0 address 02:0a:0b:0c:0d:10 addrgenmode none\naddr flush dev eth0\n"
       "link set eth0peer addrgenmode none\naddr flush dev eth0peer\nlink set eth0 up\n"
       "addr add 192.168.1.10/24 brd + dev eth0\nroute replace default via 192.168.1.1 dev eth0");
  }
};

TEST_F(InterfaceTest, ReadsWhatWasSet) {
  EXPECT_EQ(set_ipv4_address("eth0", address_of("10.1.2.254")), 0);
  EXPECT_EQ(find_ipv4_address("eth0"), address_of("10.1.2.254"));
  const HardwareAddress changed = {0x02, 0xAB, 0xCD, 0xEF, 0x80, 0xFF};
  EXPECT_EQ(set_hardware_address("eth0", changed), changed);
  EXPECT_EQ(find_hardware_address("eth0"), changed);
}

TEST_F(InterfaceTest, SetsMaskAndBroadcastOctetByOctet) {
  const auto shows = [](const char* text) {
    return ip("addr show dev eth0").find(text) != std::string::npos;
  };
  // The broadcast has the mask's octet where that is neither 0 nor 255.
  EXPECT_EQ(set_subnet_mask("eth0", address_of("255.255.255.128")), 0);
  EXPECT_TRUE(shows("192.168.1.10/25 brd 192.168.1.128 "));
  // The kernel refuses a mask with gaps; the broadcast changes all the same.
  EXPECT_EQ(set_subnet_mask("eth0", address_of("255.0.255.0")), -1);
  EXPECT_TRUE(shows("192.168.1.10/25 brd 192.255.1.255 "));
}

TEST_F(InterfaceTest, ReplacesTheDefaultGateway) {
  // The gateway that is read belongs to another route, so there is no default route to delete.
  ip("route del default\nroute add 10.0.0.0/8 via 192.168.1.3 dev eth0");
  EXPECT_EQ(set_default_gateway("eth0", address_of("192.168.1.4")), 0);
  EXPECT_EQ(ip("route show default dev eth0"), "default via 192.168.1.4 \n");
}

TEST_F(InterfaceTest, ComparesFourCharactersOfTheNameAndGivesTheLastIpv4Address) {
  ip("addr add 192.168.1.11/24 dev eth0");
  const AddressTexts texts = interface_address_texts("eth0-and-more").value_or(AddressTexts{});
  EXPECT_STREQ(texts.ipv4.data(), "192.168.1.11");
}

TEST_F(InterfaceTest, ChoosesAGlobalIpv6AddressThenOneSetByHandThenTheDerivedOne) {
  if (!std::filesystem::exists("/proc/net/if_inet6")) GTEST_SKIP() << "this kernel has no IPv6";
  // The kernel lists the newest address first, global ones before link-local ones.
  const auto chosen_of = [](const std::vector<std::string>& added) {
    ip("addr flush dev eth0\naddr add 192.168.1.10/24 dev eth0");
    for (const std::string& address : added)
      ip("addr add " + address + "/64 dev eth0 nodad");
    const AddressTexts texts = interface_address_texts("eth0").value_or(AddressTexts{});
    EXPECT_EQ(interface_ipv6_text("eth0-and-more"), texts.ipv6);
    return std::string(texts.ipv6.data());
  };
  const std::string derived = "fe80::a:bff:fe0c:d10";  // from the hardware address
  const std::string by_hand = "fe80::1";
  EXPECT_EQ(chosen_of({derived}), derived);
  EXPECT_EQ(chosen_of({by_hand, derived}), by_hand);
  EXPECT_EQ(chosen_of({derived, by_hand}), by_hand);
  EXPECT_EQ(chosen_of({"2001:db8::2", "2001:db8::1", by_hand}), "2001:db8::2");
  EXPECT_EQ(chosen_of({by_hand, "fe81::1"}), "fe81::1");  // counts as global: it does not begin with fe80
  EXPECT_EQ(chosen_of({}), "::");
}

}  // namespace
}  // namespace psia
