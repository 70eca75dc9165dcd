// The NTP server: how the one stored text is shown, and which text each change stores.
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

constexpr const char* kList = "/PSIA/System/time/ntpServers";
constexpr const char* kServer = "/PSIA/System/time/ntpServers/7";

class NtpServersTest : public RunningServiceTest {};

TEST_F(NtpServersTest, BothDocumentsShowTheStoredServer) {
  const std::string declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n";
  const std::string digits(31, '1');
  const std::vector<std::array<std::string, 3>> cases = {
      {"update Network set NTPServer='t<i>.example'", "hostname", "<hostName>t<i>.example</hostName>"},
      {"update Network set NTPServer='10.0.0.1'", "ipaddress", "<ipAddress>10.0.0.1</ipAddress>"},
      {"update Network set NTPServer='" + digits + "x'", "ipaddress",
       "<ipAddress>" + digits + "</ipAddress>"},
      {"update Network set NTPServer=null", "ipaddress", "<ipAddress></ipAddress>"},
      {"delete from Network", "hostname", "<hostName>pool.ntp.org</hostName>"}};
  for (const auto& [change, type, server] : cases) {
    run_sql(change);
    EXPECT_EQ(
        get(kList),
        document(declaration + "<NTPServerList version=\"1.0\" xmlns=\"urn:psialliance-org\">" +
                 "<NTPServer version=\"1.0\"><id>1</id><addressingFormatType>" + type +
                 "</addressingFormatType>" + server + "<portNo>123</portNo></NTPServer></NTPServerList>"));
    EXPECT_EQ(get(kServer),
              document(declaration + "  <NTPServer version=\"1.0\" xmlns=\"urn:psialliance-org\">" +
                       "    <id>1</id>    <addressingFormatType>" + type + "</addressingFormatType>    " +
                       server + "    <portNo>123</portNo>  </NTPServer>"));
  }
}

TEST_F(NtpServersTest, ChangesStoreTheSelectedText) {
  const std::string texts = "<hostName>h</hostName><ipAddress>1.2.3.4</ipAddress>";
  const std::string address_wanted = "<addressingFormatType>hostname</addressingFormatType>" + texts;
  const std::string name31(31, 'n');
  const std::vector<std::array<std::string, 4>> cases = {
      // The URL, the root element, its content; what is stored.
      {kServer, "ntpserver", texts, "h"},
      {kServer, "NTPServer", address_wanted, "1.2.3.4"},
      {kServer, "NTPServer", address_wanted + "<addressingFormatType>nTp</addressingFormatType>", "h"},
      {kServer, "NTPServer", "<ipAddress>1.2.3.4</ipAddress>", ""},
      {kServer, "NTPServer", "<HOSTNAME>a</HOSTNAME><hostName>" + name31 + "x</hostName>", name31},
      {kServer, "NTPServer", address_wanted + "<ipAddress>" + name31 + "x</ipAddress>", name31},
      {kList, "ntpserverlist",
       "<NTPServer><hostName>a</hostName></NTPServer><ntpserver>" + address_wanted +
           "</ntpserver><NTPServer/>",
       "h"},
      {kList, "NTPServerList", "<NTPServer><ipAddress>1.2.3.4</ipAddress></NTPServer>", ""},
      {kList, "NTPServerList", "<hostName>not in a server</hostName>", ""}};
  for (const auto& [uri, root, content, stored] : cases) {
    run_sql("update Network set NTPServer='before'");
    EXPECT_EQ(put(uri, "<" + root + ">" + content + "</" + root + ">"), status(1, uri));
    EXPECT_EQ(rows("select NTPServer from Network"), stored) << content;
  }
  const std::string refused = "<NTPServer><hostName>it's</hostName></NTPServer>";
  const std::string before = rows("select * from Network");
  for (const std::string& body : {refused, "<NTPServerList>" + refused + "</NTPServerList>"}) {
    EXPECT_EQ(put(kServer, body), status(3, kServer));
    EXPECT_EQ(put(kList, body), status(3, kList));
  }
  EXPECT_EQ(rows("select * from Network"), before);
}

}  // namespace
}  // namespace psia_tests
