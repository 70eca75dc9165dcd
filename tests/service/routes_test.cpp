// Which request reaches which handler, and who may send it; and the documents by which clients explore the
// URLs.
#include <regex>
#include <sstream>

#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

class RoutesTest : public RunningServiceTest {};

TEST_F(RoutesTest, EveryUrlWithEveryMethodAndLevel) {
  // The highest user levels to which GET, PUT, POST and DELETE are open, and the URLs for which that is so.
  // The body is none that a handler takes; what handlers do is tested with their resources.
  const std::string users[] = {"admin", "operator", "viewer", "guest", "level4"};
  std::istringstream table(replaced(R"(
3--- S/index S/description S/System/index S/System/description S/System/Network/index S/System/Network/description
3--- S/System/Audio/index S/System/Audio/description S/System/Video/index S/System/Video/description S/indexr
3--- S/Security/index S/Security/description S/Security/AAA/index S/Security/AAA/description
3--- S/Streaming/index S/Streaming/description S/Streaming/status S/System/status S/System/Audio/channels
3--- S/System/Network/interfaces S/System/Video/inputs S/System/Video/inputs/channels
-0-- S/System/reboot S/System/updateFirmware S/System/factoryReset?mode=full
00-- S/System/configurationData
30-- S/System/deviceInfo S/System/Network/interfaces/eth0 S/System/Network/interfaces/eth0/ipAddress
30-- S/System/Network/interfaces/eth0/discovery
31-- S/System/time S/System/time/localTime S/System/time/timeZone S/System/Audio/channels/1
31-- S/System/Video/inputs/channels/1 E E/index E/description E/schedule E/triggers E/notification
3111 S/System/time/ntpServers S/System/time/ntpServers/1 S/Streaming/channels E/notification/ftp/FTP-1
3111 E/notification/ftp E/notification/mailing E/notification/mailing/Mail-1 E/triggers/Sensor-0/notifications
3111 E/triggers/Sensor-0/notifications/FTP-1
31-1 E/triggers/Sensor-0 S/Streaming/channels/1 S/Streaming/channels/1/status S/Streaming/channels/1/capabilities
30-0 S/Security/AAA/users/guest
3000 S/Security/AAA/users)",
                                    {{" E", " /PSIA/Custom/Event"}, {" S/", " /PSIA/"}, {"\n", " "}}));
  std::string levels;
  for (std::string uri; table >> uri;) {
    if (uri[0] != '/') levels = std::exchange(uri, "") + "-";  // HEAD is open to none
    for (std::size_t method = 0; method < levels.size() && !uri.empty(); ++method) {
      for (int level = 0; level <= 4; ++level) {
        const Call call{.method = std::vector<std::string>{"GET", "PUT", "POST", "DELETE", "HEAD"}[method],
                        .uri = uri,
                        .body = "-",
                        .user = users[level] + ":" + users[level]};
        run_sql("insert or ignore into User values ('level4', 'level4', 4)");
        const bool refused = effect(call) == "status 4";
        EXPECT_EQ(refused, level > levels[method] - '0') << call.method << " " << uri << " as " << call.user;
        if (call.method == "DELETE" && !refused) restore_settings();
      }
    }
  }
}

TEST_F(RoutesTest, PrefixesCaseAndLengths) {
  // Of a trigger with an empty id there is none.
  expect_effects(R"(
GET /PSIA/System/statusABC => DeviceStatus
{GET|get|GeT} /psia/SYSTEM/Status?x=1 => DeviceStatus
{G|GETX|PATCH} /PSIA/System/status => status 4
GET /PSIA/{index|indexr}X => ResourceList
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

/// Entries from their names: services with a '/' behind them, their own lists in braces.
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
  for (const auto& [level, names] :
       Pairs{{"", "index indexr description System/ Security/ Streaming/"},
             {"/System",
              "index description reboot updateFirmware configurationData factoryReset deviceInfo status time "
              "localTime timeZone ntpServers ntpServers/ID Network/ Audio/ Video/"},
             {"/System/Network", "index description interfaces"},
             {"/System/Audio", "index description channels"},
             {"/System/Video", "index description inputs"},
             {"/Security", "index description"},
             {"/Security/AAA", "index description users"},
             {"/Streaming", "index description status channels"},
             {"/Custom/Event", "index description triggers schedule notification"}}) {
    const std::string root =
        level == "/System/Video" ? R"( version="1.0" xmlns="urn:psialliance-org">)" : attributes;
    const bool bare = level.empty() || level == "/System/Network" || level == "/Custom/Event";
    const std::string& declaration = bare ? kBareXml : kXml;
    expect_shown("/PSIA" + level + "/index",
                 declaration + "<ResourceList" + root + entries(names) + "</ResourceList>");
    expect_shown("/PSIA" + level + "/description",
                 declaration + "<ResourceDescription" + attributes + description + "</ResourceDescription>");
  }
  expect_shown(
      "/PSIA/indexr",
      kBareXml + "<ResourceList" + attributes +
          entries(
              "index indexr description System/{index description reboot updateFirmware configurationData factoryReset "
              "deviceInfo status Network/{index description interfaces} Video/{index description inputs}} "
              "Security/{index description AAA/{index description users}} "
              "Streaming/{index description status channels}") +
          "</ResourceList>");
}

}  // namespace
}  // namespace psia_tests
