// The resources of eth0: the live state in all documents, and what a change stores, sends and answers.
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <regex>

#include "simulator/daemons.h"
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

const std::string kListUri = "/PSIA/System/Network/interfaces";
const std::string kInterfaceUri = kListUri + "/eth0";
const std::string kAddressUri = kInterfaceUri + "/ipAddress";
const std::string kDiscoveryUri = kInterfaceUri + "/discovery";

/// The list of interfaces; words in capitals stand for the values that a test expects.
const std::string kList = R"(<?xml version="1.0" encoding="UTF-8" ?>
<NetworkInterfaceList version="1.0" xmlns="urn:psialliance-org">
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

/// The answer that shows an element which stands in `list` behind the spaces `margin`.
std::string element_document(const std::string& list, const std::string& margin, const std::string& name) {
  const std::string opening = margin + "<" + name + " version=\"1.0\">";
  const std::size_t start = list.find(opening) + opening.size();
  const std::string content = list.substr(start, list.find(margin + "</" + name + ">") - start);
  return document("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<" + name +
                  " version=\"1.0\" xmlns=\"urn:psialliance-org\">" +
                  std::regex_replace(content, std::regex("\n" + margin), "\n") + "</" + name + ">\n");
}

/// The address settings of a change as most clients send them.
const std::string kSettings =
    "<ipVersion>v4</ipVersion><addressingType>static</addressingType><ipAddress>10.0.0.5</ipAddress>"
    "<subnetMask>255.0.0.0</subnetMask><DefaultGateway><ipAddress>10.0.0.1</ipAddress></DefaultGateway>"
    "<PrimaryDNS><ipAddress>10.0.0.2</ipAddress></PrimaryDNS>"
    "<SecondaryDNS><ipAddress>10.0.0.3</ipAddress></SecondaryDNS>";
const std::string kStatic = "<addressingType>static</addressingType>";
const std::string kDynamic = "<addressingType>dhcp</addressingType>";
constexpr const char* kStored = "select ConnectionType, IPAddress, SubnetMask, Gateway from Network";

std::string ip_address(const std::string& settings) {
  return "<IPAddress>" + settings + "</IPAddress>";
}

class InterfacesTest : public RunningServiceTest {
 protected:
  /// All documents must show these values: type, address, mask, gateway and both name servers.
  void expect_shown(const std::vector<std::string>& values) {
    const char* const words[] = {"TYPE", "ADDRESS", "MASK", "GATEWAY", "PRIMARY", "SECONDARY"};
    std::string list = kList;
    for (std::size_t i = 0; i < values.size(); ++i)
      list = std::regex_replace(list, std::regex(words[i]), values[i]);
    EXPECT_EQ(get(kListUri), document(list));
    EXPECT_EQ(get(kInterfaceUri), element_document(list, "    ", "NetworkInterface"));
    EXPECT_EQ(get(kAddressUri), element_document(list, "        ", "IPAddress"));
  }
};

TEST_F(InterfacesTest, DocumentsShowTheLiveState) {
  // The name servers keep the line feed of the resolver file.
  expect_shown({"static", "192.168.1.10", "255.255.255.0", "192.168.1.1", "192.168.1.2\n", "192.168.1.3\n"});
  write_file(camera::kResolverFile, "search example\nnameserver 10.0.0.2");
  expect_shown({"static", "192.168.1.10", "255.255.255.0", "192.168.1.1", "10.0.0.2", ""});
  std::filesystem::remove(camera::kResolverFile);
  const auto ip = [](const std::string& commands) {
    // NOLINTNEXTLINE(cert-env33-c): a fixed program of the test system.
    ASSERT_EQ(std::system(("ip -batch - <<end\naddress flush dev eth0\n" + commands + "end\n").c_str()), 0);
  };
  ip("address add 10.1.2.3/9 dev eth0\nroute add default via 10.20.30.40 dev eth0\n");
  expect_shown({"static", "10.1.2.3", "255.128.0.0", "10.20.30.40", "", ""});
  ip("");
  run_sql("update Network set ConnectionType=1");
  expect_shown({"dynamic", "0.0.0.0", "0.0.0.0", "0.0.0.0", "", ""});
  run_sql("update Network set ConnectionType=2");
  expect_shown({"static", "0.0.0.0", "0.0.0.0", "0.0.0.0", "", ""});
  run_sql("delete from Network");
  expect_shown({"dynamic", "0.0.0.0", "0.0.0.0", "0.0.0.0", "", ""});

  EXPECT_EQ(put(kDiscoveryUri, "no XML"), status(1, kDiscoveryUri));  // it cannot be changed
  EXPECT_EQ(get(kDiscoveryUri), element_document(kList, "        ", "Discovery"));
}

TEST_F(InterfacesTest, AChangeIsShownOnceTheDaemonHasAppliedIt) {
  const auto change = [this](const std::string& settings, const std::vector<int>& results) {
    EXPECT_EQ(put_with_daemon(kAddressUri, ip_address(settings), results), status(1, kAddressUri));
    for (const camera::Message& message : messages)
      EXPECT_EQ(camera::integer_at(camera::perform(message), 8), 0);
  };
  change(kSettings, {0, 0});
  expect_shown({"static", "10.0.0.5", "255.0.0.0", "10.0.0.1", "10.0.0.2\n", "10.0.0.3\n"});
  change(kDynamic, {0});
  expect_shown({"dynamic", "192.168.1.20", "255.255.255.0", "192.168.1.1", "10.0.0.2\n", "10.0.0.3\n"});
}

TEST_F(InterfacesTest, StaticAddressingIsStoredAndSent) {
  std::string upper_case = kSettings;
  for (char& c : upper_case)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  const std::string cut(31, '7');
  struct Case {
    std::string settings, row, name_servers;
  };
  const Case cases[] = {
      {upper_case, "0|10.0.0.5|255.0.0.0|10.0.0.1", "10.0.0.2-10.0.0.3"},
      {kStatic, "0|||", "-"},
      // The last occurrence wins; a name server's element clears what came before, the gateway's does not.
      {kDynamic + kSettings +
           "<ipAddress>a</ipAddress><subnetMask/><DefaultGateway><ipAddress>b</ipAddress>"
           "<ipAddress>c</ipAddress></DefaultGateway><DefaultGateway/><PrimaryDNS/><SecondaryDNS/>",
       "0|a||c", "-"},
      {std::regex_replace(kSettings, std::regex("[0-9]+\\.0\\.0\\.[0-9]"), cut + "8"),
       "0|" + cut + "|" + cut + "|" + cut, cut + "-" + cut},
      {kStatic + "<ipAddress>&lt;%s&gt;</ipAddress><DefaultGateway><x>1</x></DefaultGateway>"
                 "<PrimaryDNS><ipAddress>%s'%%n</ipAddress></PrimaryDNS>",
       "0|<%s>||", "%s'%%n-"},
  };
  for (const auto& [settings, row, name_servers] : cases) {
    run_sql("update Network set ConnectionType=1, IPAddress='', SubnetMask='', Gateway=''");
    const std::string body = "<networkINTERFACE><ID>ETH0</ID><ipaddress>" + settings +
                             "</ipaddress><IPAddress/></networkINTERFACE>";
    EXPECT_EQ(put_with_daemon(kInterfaceUri, body, {0, 0}), status(1, kInterfaceUri)) << body;
    EXPECT_EQ(rows(kStored), row) << body;
    camera::Message expected;
    camera::put_integer(expected, 4, 31);
    EXPECT_EQ(messages.at(0).body, expected.body) << body;
    camera::put_integer(expected, 4, 33);
    camera::put_text(expected, 12, name_servers);
    EXPECT_EQ(messages.at(1).body, expected.body) << body;
  }
}

TEST_F(InterfacesTest, TheLastMessageSentDecidesTheAnswer) {
  // Every other type than static is dynamic: the type alone is stored and no name servers are sent.
  const std::string dynamic = ip_address(kSettings + "<addressingType>static1</addressingType>");
  EXPECT_EQ(put_with_daemon(kAddressUri, dynamic, {1}), status(2, kAddressUri));
  EXPECT_EQ(camera::command_of(messages.at(0)), 31);
  EXPECT_EQ(rows(kStored), "1|192.168.1.10|255.255.255.0|192.168.1.1");
  EXPECT_EQ(put_with_daemon(kAddressUri, ip_address(kSettings), {0, 1}), status(2, kAddressUri));
  EXPECT_EQ(put_with_daemon(kAddressUri, ip_address(kSettings), {2}), status(3, kAddressUri));
}

TEST_F(InterfacesTest, FailuresBeforeTheMessageChangeNothing) {
  EXPECT_EQ(put(kAddressUri, "no XML"), status(3, kAddressUri));
  EXPECT_EQ(put(kAddressUri, "<NetworkInterface/>"), status(5, kAddressUri));
  EXPECT_EQ(put(kInterfaceUri, ip_address(kSettings)), status(5, kInterfaceUri));
  for (const std::string& settings :
       {std::string(), std::string("<ipAddress>1.2.3.4</ipAddress>"), "<ipVersion>v6</ipVersion>" + kSettings,
        kSettings + "<ipVersion/>", kSettings + "<ipAddress>' or '1'='1</ipAddress>"}) {
    EXPECT_EQ(put(kAddressUri, ip_address(settings)), status(3, kAddressUri)) << settings;
  }
  for (const std::string& children :
       {kSettings, "<id>eth1</id>" + ip_address(kSettings), ip_address(kSettings) + "<id/>",
        ip_address(kSettings + "<ipVersion>v4 </ipVersion>")}) {
    const std::string body = "<NetworkInterface>" + children + "</NetworkInterface>";
    EXPECT_EQ(put(kInterfaceUri, body), status(3, kInterfaceUri)) << body;
  }
  run_sql("create trigger refuse before update on Network begin select raise(abort, 'no'); end");
  for (const std::string& settings : {kSettings, kDynamic})
    EXPECT_EQ(put(kAddressUri, ip_address(settings)), status(3, kAddressUri)) << settings;
  EXPECT_EQ(rows(kStored), "0|192.168.1.10|255.255.255.0|192.168.1.1");
}

}  // namespace
}  // namespace psia_tests
