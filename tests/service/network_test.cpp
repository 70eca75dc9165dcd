// The network interface: the live state in all documents, what a change stores, sends and answers; and the
// utilities against the real kernel, on the veth named eth0 of a private network.
#include <linux/capability.h>
#include <stdio_ext.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <array>
#include <cstdlib>
#include <filesystem>

#include "network/interface_setup.h"
#include "network/interface_state.h"
#include "simulator/camera/daemons.h"
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

const std::string kUri = "/PSIA/System/Network/interfaces";

/// The list of interfaces; words in capitals stand for the values that a test expects.
const std::string kList = kLineXml + R"(<NetworkInterfaceList version="1.0" xmlns="urn:psialliance-org">
    <NetworkInterface version="1.0">
        <id>eth0</id>
        <IPAddress version="1.0">
            <ipVersion>v4</ipVersion>
            <addressingType>TYPE</addressingType>
            <ipAddress>ADDRESS</ipAddress>
            <subnetMask>MASK</subnetMask>
            <DefaultGateway>
                <ipAddress>GATEWAY</ipAddress>
            </DefaultGateway>
            <PrimaryDNS>
                <ipAddress>PRIMARY</ipAddress>
            </PrimaryDNS>
            <SecondaryDNS>
                <ipAddress>SECONDARY</ipAddress>
            </SecondaryDNS>
        </IPAddress>
        <Discovery version="1.0">
            <Zeroconf>
                <enabled>true</enabled>
            </Zeroconf>
        </Discovery>
    </NetworkInterface>
</NetworkInterfaceList>
)";

/// The document of an element which stands in `list` behind the spaces `margin`.
std::string element_document(const std::string& list, const std::string& margin, const std::string& name) {
  const std::string opening = margin + "<" + name + " version=\"1.0\">";
  const std::size_t start = list.find(opening) + opening.size();
  const std::string content = list.substr(start, list.find(margin + "</" + name + ">") - start);
  return kLineXml + xml(name + "!(") + replaced(content, {{"\n" + margin, "\n"}}) + "</" + name + ">\n";
}

class InterfacesTest : public RunningServiceTest {
 protected:
  /// All documents must show these values: type, address, mask, gateway and both name servers.
  void expect_shown_everywhere(const std::array<std::string, 6>& values) {
    const std::string list = replaced(kList, {{"TYPE", values[0]},
                                              {"ADDRESS", values[1]},
                                              {"MASK", values[2]},
                                              {"GATEWAY", values[3]},
                                              {"PRIMARY", values[4]},
                                              {"SECONDARY", values[5]}});
    expect_shown(kUri, list);
    expect_shown(kUri + "/eth0", element_document(list, "    ", "NetworkInterface"));
    expect_shown(kUri + "/eth0/ipAddress", element_document(list, "        ", "IPAddress"));
  }
};

TEST_F(InterfacesTest, DocumentsShowTheLiveState) {
  write_file(camera::kResolverFile, "search example\nnameserver 10.0.0.2");
  expect_shown_everywhere({"static", "192.168.1.10", "255.255.255.0", "192.168.1.1", "10.0.0.2", ""});
  std::filesystem::remove(camera::kResolverFile);
  ip("address flush dev eth0\naddress add 10.1.2.3/9 dev eth0\nroute add default via 10.20.30.40 dev eth0\n");
  run_sql("update Network set ConnectionType=2");
  expect_shown_everywhere({"static", "10.1.2.3", "255.128.0.0", "10.20.30.40", "", ""});
  ip("address flush dev eth0\naddress add 10.1.2.3/32 dev eth0\n");
  run_sql("update Network set ConnectionType=1");
  expect_shown_everywhere({"dynamic", "10.1.2.3", "255.255.255.255", "0.0.0.0", "", ""});
  ip("address flush dev eth0\n");
  run_sql("delete from Network");
  expect_shown_everywhere({"dynamic", "0.0.0.0", "0.0.0.0", "0.0.0.0", "", ""});
  expect_shown(kUri + "/eth0/discovery", element_document(kList, "        ", "Discovery"));
}

TEST_F(InterfacesTest, WhatTheDaemonHasAppliedIsShown) {
  camera::Message servers;
  camera::put_integer(servers, 4, 33);
  camera::put_text(servers, 12, "10.0.0.2-10.0.0.3");
  (void)effect(
      {.method = "PUT", .uri = kUri + "/eth0/ipAddress", .body = xml("IPAddress(addressingType=dhcp)")});
  for (const camera::Message& message : {servers, messages.at(0)})
    EXPECT_EQ(camera::integer_at(camera::perform(message), 8), 0);
  expect_shown_everywhere(
      {"dynamic", "192.168.1.20", "255.255.255.0", "192.168.1.1", "10.0.0.2\n", "10.0.0.3\n"});
}

TEST_F(InterfacesTest, ChangesAreStoredAndSent) {
  // The last occurrence wins; a name server's element clears what came before, the gateway's does not. Every
  // other type than static is dynamic: the type alone is stored and no name servers are sent. The last
  // message sent decides the answer. Failures before the message change nothing.
  expect_effects("S31 := " + std::string(31, '7') + R"(
always := update Network set ConnectionType=3, IPAddress='-', SubnetMask='-', Gateway='-'
FULL := ipVersion=v4 addressingType=static ipAddress=a subnetMask=m DefaultGateway(ipAddress=g) PrimaryDNS(ipAddress=p)
 SecondaryDNS(ipAddress=s)
STORED := Network ConnectionType=0 IPAddress=
PUT /PSIA/System/Network/interfaces/eth0 networkINTERFACE(ID=ETH0 ipaddress(IPVERSION=V4 ADDRESSINGTYPE=STATIC
 IPADDRESS=a SUBNETMASK=m DEFAULTGATEWAY(IPADDRESS=g) PRIMARYDNS(IPADDRESS=p) SECONDARYDNS(IPADDRESS=s)) IPAddress()) =>
 STOREDa SubnetMask=m Gateway=g; message 31; message 33 servers=p-s; status 1
NetworkInterface(IPAddress(addressingType=static)) =>
 STORED SubnetMask= Gateway=; message 31; message 33 servers=-; status 1
NetworkInterface(IPAddress(addressingType=dhcp FULL ipAddress=b subnetMask= DefaultGateway(ipAddress=c ipAddress=d)
 DefaultGateway() PrimaryDNS() SecondaryDNS())) =>
 STOREDb SubnetMask= Gateway=d; message 31; message 33 servers=-; status 1
NetworkInterface(IPAddress(addressingType=static ipAddress=S31x subnetMask=S31x DefaultGateway(ipAddress=S31x)
 PrimaryDNS(ipAddress=S31x) SecondaryDNS(ipAddress=S31x))) =>
 STOREDS31 SubnetMask=S31 Gateway=S31; message 31; message 33 servers=S31-S31; status 1
NetworkInterface(IPAddress(addressingType=static ipAddress=&lt;%s&gt; DefaultGateway(x=1) PrimaryDNS(ipAddress=%s'%%n))) =>
 STORED<%s> SubnetMask= Gateway=; message 31; message 33 servers=%s'%%n-; status 1
{NetworkInterface(FULL)|NetworkInterface(id=eth1 IPAddress(FULL))|NetworkInterface(IPAddress(FULL) id=)} => status 3
NetworkInterface(IPAddress(FULL ipVersion=`v4 `)) => status 3
IPAddress(FULL) => status 5
PUT /PSIA/System/Network/interfaces/eth0/ipAddress IPAddress(FULL) <- 0 1 =>
 STOREDa SubnetMask=m Gateway=g; message 31; message 33 servers=p-s; status 2
IPAddress(FULL) <- 2 => STOREDa SubnetMask=m Gateway=g; message 31; status 3
IPAddress(FULL addressingType=static1) <- 1 => Network ConnectionType=1; message 31; status 2
IPAddress({|ipAddress=1.2.3.4|ipVersion=v6 FULL|FULL ipVersion=|FULL ipAddress='or'1'='1}) => status 3
create trigger refuse before update on Network begin select raise(abort, 'no'); end ::
 IPAddress({FULL|addressingType=dhcp}) => status 3
"no XML" => status 3
NetworkInterface(IPAddress(FULL)) => status 5
)");
}

// The utilities.

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
