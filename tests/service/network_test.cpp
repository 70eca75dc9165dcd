// The address utilities against the real kernel, on the veth named eth0 of a private network.
#include <linux/capability.h>
#include <stdio_ext.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <array>
#include <cstdlib>
#include <filesystem>

#include "network/interface_address.h"
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

/// What ip(8) prints for the commands, one per line; a failing command fails the test.
std::string ip(const std::string& commands) {
  // NOLINTNEXTLINE(cert-env33-c): a fixed program of the test system.
  std::FILE* const output = popen(("ip -batch - <<end\n" + commands + "end\n").c_str(), "r");
  std::array<char, 1000> text{};
  const std::size_t size = std::fread(text.data(), 1, text.size(), output);
  EXPECT_EQ(pclose(output), 0) << commands;
  return {text.data(), size};
}

using namespace psia;  // NOLINT(google-build-using-namespace): nothing else is tested below

const HardwareAddress kHardwareAddress = {0x02, 0x00, 0x00, 0x00, 0x00, 0x10};

std::uint32_t address_of(const char* text) {
  return parse_dotted_quad(text, OctetOrder::kFirstLowest).value_or(kNoAddress);
}

/// From now on sockets and files can be opened, or not.
void allow_descriptors(bool allow) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  static const rlim_t usual = limit.rlim_cur;
  limit.rlim_cur = allow ? usual : 0;
  setrlimit(RLIMIT_NOFILE, &limit);
}

/// From now on the kernel lets us change something, or nothing.
void allow_changes(bool allow) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
  syscall(SYS_capget, &header, sets.data());
  for (auto& set : sets)
    set.effective = allow ? set.permitted : 0;
  syscall(SYS_capset, &header, sets.data());
}

std::ptrdiff_t open_descriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return std::distance(begin(descriptors), end(descriptors));
}

class LiveInterface : public testing::Test {
 protected:
  /// Only what a test needs, whatever was there: an address, a default route, no IPv6.
  void SetUp() override {
    ip("link set lo up\nlink set eth0 down\nlink set eth0 address 02:00:00:00:00:10 addrgenmode none\n"
       "link set eth0peer addrgenmode none\naddr flush dev eth0\naddr flush dev eth0peer\n"
       "link set eth0peer up\nlink set eth0 up\naddr add 192.168.1.10/24 brd + dev eth0\n"
       "route replace default via 192.168.1.1 dev eth0\n");
    descriptors_ = open_descriptors();
    testing::internal::CaptureStdout();
  }

  /// Success and failure must leave no descriptor open, and nothing in the buffer of standard output.
  void TearDown() override {
    allow_descriptors(true);
    allow_changes(true);
    const std::size_t pending = __fpending(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), told_);
    EXPECT_EQ(pending, 0U);
    EXPECT_EQ(open_descriptors(), descriptors_);
  }

  std::string told_;  // what must come on standard output
  std::ptrdiff_t descriptors_ = 0;
};

TEST_F(LiveInterface, ReadsWhatWasSet) {
  EXPECT_EQ(set_ipv4_address("eth0", address_of("10.1.2.254")), 0);
  EXPECT_EQ(read_ipv4_address("eth0"), address_of("10.1.2.254"));

  const HardwareAddress changed = {0x02, 0xAB, 0xCD, 0xEF, 0x80, 0xFF};
  EXPECT_EQ(set_hardware_address("eth0", changed), changed);
  EXPECT_EQ(read_hardware_address("eth0"), changed);
  // Of a name 15 characters count, the most that the kernel takes.
  ip("link set eth0 down name fifteen-letters\n");
  EXPECT_EQ(read_hardware_address("fifteen-letters-and-more"), changed);
  ip("link set fifteen-letters name eth0\n");

  write_file("/etc/resolv.conf", "search example.com\n");
  EXPECT_STREQ(read_dns_search_domain().value_or(ResolverText{}).data(), "example.com\n");
}

TEST_F(LiveInterface, SetsMaskAndBroadcastOctetByOctet) {
  const auto has_broadcast = [](const std::string& address) {
    return ip("addr show dev eth0\n").find(" brd " + address + " ") != std::string::npos;
  };
  EXPECT_EQ(set_subnet_mask("eth0", address_of("255.255.255.128")), 0);
  EXPECT_TRUE(has_broadcast("192.168.1.128"));
  // The kernel refuses a mask with gaps; the broadcast changes all the same.
  EXPECT_EQ(set_subnet_mask("eth0", address_of("255.0.255.0")), -1);
  told_ = "Failed to set subnet mask!\n";
  EXPECT_TRUE(has_broadcast("192.255.1.255"));
  EXPECT_EQ(read_subnet_mask("eth0"), address_of("255.255.255.128"));
}

TEST_F(LiveInterface, ReplacesTheDefaultGateway) {
  const auto default_route = [] { return ip("route show default dev eth0\n"); };
  EXPECT_EQ(set_default_gateway("eth0", address_of("192.168.1.254")), 0);
  EXPECT_EQ(default_route(), "default via 192.168.1.254 \n");
  // Now the gateway that is read belongs to another route, so there is no default route to delete.
  ip("route del default\nroute add 10.0.0.0/8 via 192.168.1.3 dev eth0\n");
  EXPECT_EQ(read_default_gateway("eth0"), address_of("192.168.1.3"));
  EXPECT_EQ(set_default_gateway("eth0", address_of("192.168.1.4")), 0);
  EXPECT_EQ(default_route(), "default via 192.168.1.4 \n");
}

TEST_F(LiveInterface, TriesTheRouteCommandWhenTheKernelRefusesAGateway) {
  write_file("/usr/local/orvid/route", "#!/bin/sh\necho \"route $*\"\n");
  chmod("/usr/local/orvid/route", 0755);
  const std::string path = std::getenv("PATH");
  setenv("PATH", ("/usr/local/orvid:" + path).c_str(), 1);
  EXPECT_EQ(set_default_gateway("eth0", address_of("10.9.8.254")), -1);  // out of reach
  told_ = "Failed to set default gateway!\nroute add default gw 10.9.8.254\n";
  setenv("PATH", path.c_str(), 1);
}

TEST_F(LiveInterface, TellsWhatTheKernelRefuses) {
  allow_changes(false);
  EXPECT_EQ(set_subnet_mask("eth0", address_of("255.0.0.0")), -1);
  EXPECT_EQ(set_default_gateway("eth0", address_of("192.168.1.2")), -1);
  allow_changes(true);
  ip("addr flush dev eth0\n");
  EXPECT_EQ(read_ipv4_address("eth0-with-a-name-that-is-too-long"), kNoAddress);
  EXPECT_EQ(read_ipv4_address("eth0"), kNoAddress);
  EXPECT_EQ(set_ipv4_address("eth7", address_of("10.0.0.1")), -1);
  EXPECT_FALSE(read_subnet_mask("eth0"));
  EXPECT_EQ(set_subnet_mask("eth7", address_of("255.0.0.0")), -1);
  EXPECT_FALSE(read_hardware_address("eth7"));
  EXPECT_FALSE(set_hardware_address("eth7", kHardwareAddress));
  told_ =
      "Failed to set subnet mask!\nFailed to set broadcast address!\nFailed to delete default gateway!\n"
      "Unable to read IP address!, err: No such device\n"
      "Unable to read IP address!, err: Cannot assign requested address\n"
      "Failed to set IP address!\nUnable to read subnet mask!\n"
      "Unable to read IP address!, err: No such device\n"
      "Unable to read MAC address!\nUnable to read MAC address!\n";
}

TEST_F(LiveInterface, TellsThatNothingCanBeOpened) {
  allow_descriptors(false);
  EXPECT_EQ(read_ipv4_address("eth0"), kNoAddress);
  EXPECT_EQ(set_ipv4_address("eth0", 1), -1);
  EXPECT_FALSE(read_subnet_mask("eth0"));
  EXPECT_FALSE(read_hardware_address("eth0"));
  EXPECT_FALSE(set_hardware_address("eth0", kHardwareAddress));
  EXPECT_EQ(read_default_gateway("eth0"), kNoAddress);
  EXPECT_EQ(set_default_gateway("eth0", 1), -1);
  EXPECT_FALSE(read_dns_servers() || read_dns_search_domain());
  EXPECT_FALSE(interface_ipv4_text("eth0") || interface_ipv6_text("eth0"));
  EXPECT_FALSE(interface_address_texts("eth0"));
  told_ =
      "Socket Open Fail!\nSocket Open Fail!\nSocket Open Fail!\n"
      "Failed to open socket!\nFailed to open socket!\n"
      "Do not support /proc file system?\nSocket Open Fail!\n" +
      psia_tests::repeated(3, "getifaddrs fail, err: Too many open files\n");
}

TEST_F(LiveInterface, ListsTheLastIpv4AddressOfInterfacesThatBeginAlike) {
  ip("addr add 192.168.1.11/24 dev eth0\n");
  EXPECT_STREQ(interface_ipv4_text("eth0").value_or(AddressText{}).data(), "192.168.1.11");
  EXPECT_STREQ(interface_ipv4_text("eth0-anything").value_or(AddressText{}).data(), "192.168.1.11");
  EXPECT_STREQ(interface_ipv4_text("eth").value_or(AddressText{}).data(), "0.0.0.0");
  ip("addr flush dev eth0\n");
  in_addr ipv4{address_of("10.0.0.1")};
  in6_addr ipv6 = link_local_address(kHardwareAddress);
  EXPECT_EQ(find_interface_addresses("eth0", &ipv4, &ipv6), 0);
  EXPECT_EQ(ipv4.s_addr, address_of("10.0.0.1"));
  EXPECT_EQ(ipv6.s6_addr[15], kHardwareAddress[5]);
}

TEST_F(LiveInterface, ChoosesTheIpv6Address) {
  if (!std::filesystem::exists("/proc/net/if_inet6")) GTEST_SKIP() << "this kernel has no IPv6";
  // The kernel lists the newest address first, global ones before link-local ones.
  const auto chosen_of = [](const std::vector<std::string>& added) {
    std::string commands = "addr flush dev eth0\naddr add 192.168.1.10/24 dev eth0\n";
    for (const std::string& address : added)
      commands += "addr add " + address + "/64 dev eth0 nodad\n";
    ip(commands);
    const AddressTexts both = interface_address_texts("eth0").value_or(AddressTexts{});
    EXPECT_STREQ(both.ipv4.data(), "192.168.1.10");
    EXPECT_STREQ(both.ipv6.data(), interface_ipv6_text("eth0").value_or(AddressText{}).data());
    return std::string(both.ipv6.data());
  };
  const std::string derived = "fe80::ff:fe00:10";  // from kHardwareAddress
  EXPECT_EQ(chosen_of({}), "::");
  EXPECT_EQ(chosen_of({derived}), derived);
  // One set by hand is preferred to the derived one, wherever it stands.
  EXPECT_EQ(chosen_of({"fe80::1", derived}), "fe80::1");
  EXPECT_EQ(chosen_of({derived, "fe80::1"}), "fe80::1");
  EXPECT_EQ(chosen_of({"fe80::2", "fe80::1"}), "fe80::2");
  EXPECT_EQ(chosen_of({"2001:db8::1", "fe80::1"}), "2001:db8::1");
  EXPECT_EQ(chosen_of({"2001:db8::2", "2001:db8::1"}), "2001:db8::2");
  EXPECT_EQ(chosen_of({"fe80::1", "fe81::1"}), "fe81::1");  // does not begin with fe80
}

}  // namespace
}  // namespace psia_tests
