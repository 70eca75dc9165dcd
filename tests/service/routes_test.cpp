// Which request reaches which handler: every URL of the service with every method and user level, seen by
// what the request does; and the documents by which clients explore these URLs.
#include <regex>
#include <sstream>

#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

/// The levels' lists, behind each name a '/' if it is a service, with its own list in braces; and whether a
/// line break stands behind the declaration.
const struct {
  std::string uri, names;
  bool line_break;
} kLevels[] = {
    {"/PSIA", "index indexr description System/ Security/ Streaming/", false},
    {"/PSIA/System",
     "index description reboot updateFirmware configurationData factoryReset deviceInfo status time localTime "
     "timeZone ntpServers ntpServers/ID Network/ Audio/ Video/",
     true},
    {"/PSIA/System/Network", "index description interfaces", false},
    {"/PSIA/System/Audio", "index description channels", true},
    {"/PSIA/System/Video", "index description inputs", true},
    {"/PSIA/Security", "index description", true},
    {"/PSIA/Security/AAA", "index description users", true},
    {"/PSIA/Streaming", "index description status channels", true},
    {"/PSIA/Custom/Event", "index description triggers schedule notification", false},
};
const std::string kRecursive =
    "index indexr description System/{index description reboot updateFirmware configurationData factoryReset "
    "deviceInfo status Network/{index description interfaces} Video/{index description inputs}} "
    "Security/{index description AAA/{index description users}} Streaming/{index description status channels}";

// A row per URL: what GET shows to all levels below 4; then each other method with the highest level that it
// is open to, a body, and what it does. What surprises: an NTP server is added by updating it, and a POST to
// a single one falls through to that, as a POST to a single notification server does to its list; a firmware
// update is answered and not made; what is below a trigger is its list of notifications; adding a mail server
// changes nothing.
const std::string kUrls =
    replaced(R"(
/PSIA/System/reboot status 4 | PUT 0 => message 8; status 1
/PSIA/System/updateFirmware status 4 | PUT 0 => status 1
/PSIA/System/configurationData status 4 | GET 0 => message 11; status 3 | PUT 0 "settings" => file of 8; status 1
/PSIA/System/factoryReset?mode=full status 4 | PUT 0 => message 10; status 1
/PSIA/System/deviceInfo DeviceInfo | PUT 0 DeviceInfo() => Network DDNSHostname=; status 1
/PSIA/System/status DeviceStatus
/PSIA/System/time/localTime Content-Type: application/xml; charset="UTF-8" | PUT 1 "2024-01-02T03:04:05" =>
 message 6 server=pool.ntp.org interval=60 year=2024 month=1 day=2 hour=3 minute=4 second=5; status 1
/PSIA/System/time/timeZone Content-Type: text/plain; charset="UTF-8"
 | PUT 1 "GMT0" => Network TimeZone=GMT; message 7 zone=GMT; status 1
/PSIA/System/time/ntpServers/1 NTPServer | PUT 1 NTPServer(hostName=n) => Network NTPServer=n; status 1
 | POST 1 NTPServer(hostName=n) => Network NTPServer=n; status 1 | DELETE 1 => status 1
/PSIA/System/time/ntpServers NTPServerList
 | PUT 1 NTPServerList(NTPServer(hostName=n)) => Network NTPServer=n; status 1
 | POST 1 NTPServer(hostName=n) => Network NTPServer=n; status 1 | DELETE 1 => status 1
/PSIA/System/time Time | PUT 1 Times() => status 3
/PSIA/System/Network/interfaces/eth0/ipAddress IPAddress
 | PUT 0 IPAddress(addressingType=dhcp) => Network ConnectionType=1; message 31; status 1
/PSIA/System/Network/interfaces/eth0/discovery Discovery | PUT 0 => status 1
/PSIA/System/Network/interfaces/eth0 NetworkInterface
 | PUT 0 NetworkInterface(IPAddress(addressingType=dhcp)) => Network ConnectionType=1; message 31; status 1
/PSIA/System/Network/interfaces NetworkInterfaceList
/PSIA/System/Audio/channels/1 AudioChannel | PUT 1 AudioChannel() => Audio Enable=0; message 3; status 1
/PSIA/System/Audio/channels AudioChannelList
/PSIA/System/Video/inputs/channels/1 VideoInputChannel
 | PUT 1 VideoInputChannel(id=7) => message 1 source=7; status 1
/PSIA/System/Video/inputs/channels VideoInputChannelList
/PSIA/System/Video/inputs VideoInput
/PSIA/Security/AAA/users/guest User | PUT 0 User() => User/guest Password=; status 1 | DELETE 0 => -User/guest; status 1
/PSIA/Security/AAA/users UserList | PUT 0 UserList() => status 1
 | POST 0 User(userName=n password=p) => +User n|p|2; status 1
 | DELETE 0 => -User/operator; -User/viewer; -User/guest; -User/level4; status 1
/PSIA/Streaming/status StreamingStatus
/PSIA/Streaming/channels/1 StreamingChannel | PUT 1 StreamingChannel(Video()) => VIDEO | DELETE 1 => status 1
/PSIA/Streaming/channels/1/status StreamingSessionStatusList
 | PUT 1 StreamingChannel(Video()) => VIDEO | DELETE 1 => status 1
/PSIA/Streaming/channels/1/capabilities StreamingChannel with options
 | PUT 1 StreamingChannel(Video()) => VIDEO | DELETE 1 => status 1
/PSIA/Streaming/channels StreamingChannelList | PUT 1 StreamingChannelList(StreamingChannel(Video())) => VIDEO
 | POST 1 StreamingChannel(Video()) => VIDEO | DELETE 1 => status 1
$/triggers/Sensor-0 printed EventTrigger | PUT 1 EventTrigger(id=Sensor-0) => UNLINKED | DELETE 1 => UNLINKED
$/triggers/Sensor-0/notifications NOTIFICATIONS
$/triggers/Sensor-0/notifications/FTP-1 NOTIFICATIONS
$/triggers printed EventTriggerList | PUT 1 EventTriggerList(EventTrigger(id=Sensor-0)) => UNLINKED
$/schedule printed EventSchedule
 | PUT 1 EventSchedule() => Event Week=0 StartTime=2400 EndTime=0; status 1
$/notification/mailing/Mail-1 printed MailingNotification
 | PUT 1 MailingNotification(id=Mail-1) => SMTPServer Address= UserID= Password=; status 1
 | POST 1 MailingNotificationList(MailingNotification()) => status 1 | DELETE 1 => -SMTPServer/1; status 1
$/notification/mailing printed MailingNotificationList
 | PUT 1 MailingNotificationList(MailingNotification(id=Mail-1)) => SMTPServer Address= UserID= Password=; status 1
 | POST 1 MailingNotificationList(MailingNotification()) => status 1 | DELETE 1 => -SMTPServer/1; status 1
$/notification/ftp/FTP-1 printed FTPNotification
 | PUT 1 FTPNotification(id=FTP-1) => FTPServer Address= UserID= Password= Path=; status 1
 | POST 1 FTPNotificationList(FTPNotification()) => +FTPServer 2|||21|||; status 1 | DELETE 1 => -FTPServer/1; status 1
$/notification/ftp printed FTPNotificationList
 | PUT 1 FTPNotificationList(FTPNotification(id=FTP-1)) => FTPServer Address= UserID= Password= Path=; status 1
 | POST 1 FTPNotificationList(FTPNotification()) => +FTPServer 2|||21|||; status 1 | DELETE 1 => -FTPServer/1; status 1
$/notification printed EventNotificationMethods
 | PUT 1 EventNotificationMethods(FTPNotificationList(FTPNotification(id=FTP-1)))
 => FTPServer Address= UserID= Password= Path=; status 1
$ printed EventNotification EVENT
$/index printed ResourceList index description triggers schedule notification EVENT
$/description printed ResourceDescription EVENT
)",
             {{"VIDEO",
               "VideoEncoder/0 Resolution=0 QualityType=1 Bitrate=2048 Quality=2; message 2 "
               "master=1; status 1"},
              {"NOTIFICATIONS",
               "printed EventTriggerNotificationList | PUT 1 EventTriggerNotificationList() => "
               "UNLINKED | POST 1 EventTriggerNotification() => UNLINKED | DELETE 1 => UNLINKED"},
              {"EVENT",
               "| PUT 1 EventNotification(EventTriggerList(EventTrigger(id=Sensor-0))) => "
               "UNLINKED"},
              {"UNLINKED", "Event FTPServerID=-1; status 1"},
              {"$", "/PSIA/Custom/Event"},
              {"\n ", " "}});

class RoutesTest : public RunningServiceTest {
 protected:
  /// Every method as every level, as a row of kUrls says; what was changed is put back.
  void expect_offers(const std::string& row) {
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(row, parts, std::regex(R"((\S+) (.*?)( \| .*)?)"))) << row;
    const std::string others = parts[3].str() + " | ";
    for (const std::string method : {"GET", "PUT", "POST", "DELETE", "HEAD"}) {
      int highest = method == "GET" ? 3 : -1;
      std::string expected = parts[2];
      std::smatch offer;
      if (std::regex_search(others, offer,
                            std::regex(" \\| " + method + R"( (\d) ?(.*?) ?=> (.*?)(?= \| ))"))) {
        highest = std::stoi(offer[1]);
        expected = offer[3];
      }
      for (int level = 0; level <= 4; ++level) {
        const std::string users[] = {"admin", "operator", "viewer", "guest", "level4"};
        const std::string& user = users[level];
        const Call call{
            .method = method, .uri = parts[1], .body = xml(offer.str(2)), .user = user + ":" + user};
        EXPECT_EQ(effect(call), level <= highest ? expected : "status 4")
            << method << " " << parts[1] << " as " << user;
        if (method == "GET" || level > highest) continue;
        restore_settings();
        run_sql("insert into User values ('level4', 'level4', 4)");
      }
    }
  }
};

TEST_F(RoutesTest, EveryUrlWithEveryMethodAndLevel) {
  run_sql("insert into User values ('level4', 'level4', 4)");
  std::istringstream urls(kUrls);
  for (std::string row; std::getline(urls, row);) {
    if (!row.empty()) expect_offers(row);
  }
  for (const auto& [uri, names, line_break] : kLevels) {
    if (uri == "/PSIA/Custom/Event") continue;  // its other methods fall through to the event's own
    expect_offers(uri + "/index ResourceList " + std::regex_replace(names, std::regex("/(?= |$)"), ""));
    expect_offers(uri + "/description ResourceDescription");
  }
  expect_offers("/PSIA/indexr ResourceList " + replaced(kRecursive, {{"/{", " "}, {"}", ""}}));
}

TEST_F(RoutesTest, PrefixesCaseAndLengths) {
  // Of a trigger with an empty id there is none.
  expect_effects(R"(
GET /PSIA/System/statusABC => DeviceStatus
{GET|get|GeT} /psia/SYSTEM/Status?x=1 => DeviceStatus
{G|GETX|PATCH} /PSIA/System/status => status 4
GET /PSIA/indexX => ResourceList index indexr description System Security Streaming
GET /PSIA/System/Audio/channels/17 => AudioChannel
GET /PSIA/System/Audio/channelsX => AudioChannelList
GET /PSIA/System/time/ntpServers/ => NTPServer
GET /PSIA/System/timeX => Time
GET /PSIA/System/Video/inputs/channels/10 => VideoInputChannel
GET /PSIA/System/Network/interfaces/ETH0/ipaddress => IPAddress
GET /PSIA/System/{Video/inputs/channels/2|Video/inputs/|Network/interfaces/|Network/interfaces/eth0/} => status 4
GET /PSIA/System/Network/interfaces/{eth0?x|eth1|eth0/ipAddress/|eth0/discovery/} => status 4
GET /PSIA/{Security/AAA/users/|Security/AAA/usersX|Streaming/channels/|Streaming/channelsX} => status 4
GET /PSIA/Streaming/channels/{1/Status|status} => StreamingSessionStatusList
GET /PSIA/Streaming/channels/1/CAPABILITIES => StreamingChannel with options
GET /PSIA/Streaming/channels/1/capabilities? => StreamingChannel
GET /PSIA/Custom/Event/triggers/ => status 4
GET /PSIA/Custom/Event/triggers/Sensor-0/{x|} => printed EventTriggerNotificationList
GET /PSIA/Custom/EventX => printed EventNotification
GET {/PSIA|/PSIA/inde|PSIA/index|/PSIA/%69ndex|/PSIA/<a>&%20%s%n"} => status 4
)");
  for (const std::string& uri : {std::string(), "/PSIA/nothing/" + std::string(60000, 'x')})
    EXPECT_EQ(effect({.uri = uri}), "status 4") << uri.substr(0, 80);
  EXPECT_EQ(effect({.method = "", .uri = "/PSIA/System/status"}), "status 4");
}

/// Entries from names as in kLevels.
std::string entries(const std::string& names) {
  std::string text;
  const std::regex token(R"((\w+(?:/\w+)?)(/?)(\{?)|\})");
  for (std::sregex_iterator at(names.begin(), names.end(), token); at != std::sregex_iterator(); ++at) {
    const std::smatch& match = *at;
    const std::string type = match.length(2) > 0 ? "service" : "resource";
    const std::string end = match.length(3) > 0 ? R"(<ResourceList version="1.0">)" : "</Resource>";
    text += match[0] == "}" ? "</ResourceList></Resource>"
                            : R"(<Resource version="1.0">)" +
                                  xml("name=" + match.str(1) + " version=1.0 type=" + type) + end;
  }
  return text;
}

TEST_F(RoutesTest, IndexAndDescriptionDocuments) {
  const std::string attributes =
      R"( version="1.0" xmlns="urn:psialliance-org" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" )"
      R"(xsi:schemaLocation="urn:psialliance-org http://www.psialliance.org/XMLSchemas/service.xsd">)";
  const std::string description = xml(replaced(
      "name=index version=1.0 type=resource get(<QueryStringParameterList /> inboundData=none returnResult=ResourceList "
      "function=`enumerate 1st level children` notes=non-recursive) put(NOT) post(NOT) delete(NOT)",
      {{"NOT",
        "<QueryStringParameterList /> inboundData=none returnResult=none function=`not supported` notes=`not "
        "supported`"}}));
  for (const auto& [uri, names, line_break] : kLevels) {
    const std::string root =
        uri == "/PSIA/System/Video" ? R"( version="1.0" xmlns="urn:psialliance-org">)" : attributes;
    const std::string& declaration = line_break ? kXml : kBareXml;
    expect_shown(uri + "/index", declaration + "<ResourceList" + root + entries(names) + "</ResourceList>");
    expect_shown(uri + "/description",
                 declaration + "<ResourceDescription" + attributes + description + "</ResourceDescription>");
  }
  expect_shown("/PSIA/indexr",
               kBareXml + "<ResourceList" + attributes + entries(kRecursive) + "</ResourceList>");
}

}  // namespace
}  // namespace psia_tests
