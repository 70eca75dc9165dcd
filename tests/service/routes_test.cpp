// Which request reaches which handler: every URL of the service with every method and user level, seen by
// what the request does.
#include <atomic>
#include <set>
#include <thread>

#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

/// One method of a URL: the highest user level it is open to, a body it accepts, and what it then does, in
/// the words of RoutesTest::effect.
struct Offer {
  std::string method;
  int highest_level;
  std::string effect;
  std::string body = {};
};

struct Url {
  std::string uri;
  std::vector<Offer> offers;
};

constexpr int kAny = 3;

const char* const kTables[] = {"User",        "Network",   "System",     "Spec",  "VideoEncoder",
                               "VideoSource", "Audio",     "ClientList", "Event", "Relay",
                               "SMTPServer",  "FTPServer", "SensorRelay"};

const std::vector<Url>& urls() {
  static const std::string ntp = "<NTPServer><hostName>n.example</hostName></NTPServer>";
  static const std::string ntp_list = "<NTPServerList>" + ntp + "</NTPServerList>";
  static const std::string trigger = "<EventTrigger><id>Sensor-0</id></EventTrigger>";
  static const std::string mail =
      "<MailingNotification><id>Mail-1</id><ipAddress>10.0.0.1</ipAddress></MailingNotification>";
  static const std::string mails = "<MailingNotificationList>" + mail + "</MailingNotificationList>";
  static const std::string ftp =
      "<FTPNotification><id>FTP-1</id><ipAddress>10.0.0.1</ipAddress></FTPNotification>";
  static const std::string ftps = "<FTPNotificationList>" + ftp + "</FTPNotificationList>";
  static const std::string dhcp = "<addressingType>dynamic</addressingType>";
  static const std::string description = "ResourceDescription";
  static const std::vector<Url> all = {
      {"/PSIA/indexr",
       {{"GET", kAny,
         "ResourceList index indexr description System index description reboot "
         "updateFirmware configurationData factoryReset deviceInfo status Network index "
         "description interfaces Video index description inputs Security index description "
         "AAA index description users Streaming index description status channels"}}},
      {"/PSIA/index", {{"GET", kAny, "ResourceList index indexr description System Security Streaming"}}},
      {"/PSIA/description", {{"GET", kAny, description}}},
      {"/PSIA/System/index",
       {{"GET", kAny,
         "ResourceList index description reboot updateFirmware configurationData factoryReset deviceInfo "
         "status time localTime timeZone ntpServers ntpServers/ID Network Audio Video"}}},
      {"/PSIA/System/description", {{"GET", kAny, description}}},
      {"/PSIA/System/reboot", {{"PUT", 0, "status 1, command 8"}}},
      {"/PSIA/System/updateFirmware", {{"PUT", 0, "status 1"}}},
      {"/PSIA/System/configurationData",
       {{"GET", 0, "status 3, command 11"}, {"PUT", 0, "status 1, file psia_config.dat", "settings"}}},
      {"/PSIA/System/factoryReset?mode=full", {{"PUT", 0, "status 1, command 10"}}},
      {"/PSIA/System/deviceInfo",
       {{"GET", kAny, "DeviceInfo"},
        {"PUT", 0, "status 1, table Network", "<DeviceInfo><deviceName>x</deviceName></DeviceInfo>"}}},
      {"/PSIA/System/status", {{"GET", kAny, "DeviceStatus"}}},
      {"/PSIA/System/time/localTime",
       {{"GET", kAny, "text application/xml; charset=\"UTF-8\""},
        {"PUT", 1, "status 1, command 6", "2024-01-02T03:04:05"}}},
      {"/PSIA/System/time/timeZone",
       {{"GET", kAny, "text text/plain; charset=\"UTF-8\""},
        {"PUT", 1, "status 1, command 7, table Network", "CET-1"}}},
      {"/PSIA/System/time/ntpServers/1",
       {{"GET", kAny, "NTPServer"},
        {"PUT", 1, "status 1, table Network", ntp},
        {"POST", 1, "status 1, table Network", ntp},  // falls through and adds a server
        {"DELETE", 1, "status 1"}}},
      {"/PSIA/System/time/ntpServers",
       {{"GET", kAny, "NTPServerList"},
        {"PUT", 1, "status 1, table Network", ntp_list},
        {"POST", 1, "status 1, table Network", ntp},
        {"DELETE", 1, "status 1"}}},
      {"/PSIA/System/time", {{"GET", kAny, "Time"}, {"PUT", 1, "status 1, command 6", "<Time/>"}}},
      {"/PSIA/System/Network/index", {{"GET", kAny, "ResourceList index description interfaces"}}},
      {"/PSIA/System/Network/description", {{"GET", kAny, description}}},
      {"/PSIA/System/Network/interfaces/eth0/ipAddress",
       {{"GET", kAny, "IPAddress"},
        {"PUT", 0, "status 1, command 31, table Network", "<IPAddress>" + dhcp + "</IPAddress>"}}},
      {"/PSIA/System/Network/interfaces/eth0/discovery",
       {{"GET", kAny, "Discovery"}, {"PUT", 0, "status 1"}}},
      {"/PSIA/System/Network/interfaces/eth0",
       {{"GET", kAny, "NetworkInterface"},
        {"PUT", 0, "status 1, command 31, table Network",
         "<NetworkInterface><IPAddress>" + dhcp + "</IPAddress></NetworkInterface>"}}},
      {"/PSIA/System/Network/interfaces", {{"GET", kAny, "NetworkInterfaceList"}}},
      {"/PSIA/System/Audio/index", {{"GET", kAny, "ResourceList index description channels"}}},
      {"/PSIA/System/Audio/description", {{"GET", kAny, description}}},
      {"/PSIA/System/Audio/channels/1",
       {{"GET", kAny, "AudioChannel"}, {"PUT", 1, "status 1, command 3, table Audio", "<AudioChannel/>"}}},
      {"/PSIA/System/Audio/channels", {{"GET", kAny, "AudioChannelList"}}},
      {"/PSIA/System/Video/index", {{"GET", kAny, "ResourceList index description inputs"}}},
      {"/PSIA/System/Video/description", {{"GET", kAny, description}}},
      {"/PSIA/System/Video/inputs/channels/1",
       {{"GET", kAny, "VideoInputChannel"},
        {"PUT", 1, "status 1, command 1, table VideoSource",
         "<VideoInputChannel><id>0</id></VideoInputChannel>"}}},
      {"/PSIA/System/Video/inputs/channels", {{"GET", kAny, "VideoInputChannelList"}}},
      {"/PSIA/System/Video/inputs", {{"GET", kAny, "VideoInput"}}},
      {"/PSIA/Security/index", {{"GET", kAny, "ResourceList index description"}}},
      {"/PSIA/Security/description", {{"GET", kAny, description}}},
      {"/PSIA/Security/AAA/index", {{"GET", kAny, "ResourceList index description users"}}},
      {"/PSIA/Security/AAA/description", {{"GET", kAny, description}}},
      {"/PSIA/Security/AAA/users/guest",
       {{"GET", kAny, "User"},
        {"PUT", 0, "status 1, table User", "<User><password>new</password></User>"},
        {"DELETE", 0, "status 1, table User"}}},
      {"/PSIA/Security/AAA/users",
       {{"GET", kAny, "UserList"},
        {"PUT", 0, "status 1, table User",
         "<UserList><User><userName>guest</userName><password>n</password></User></UserList>"},
        {"POST", 0, "status 1, table User", "<User><userName>new</userName><password>n</password></User>"},
        {"DELETE", 0, "status 1, table User"}}},
      {"/PSIA/Streaming/index", {{"GET", kAny, "ResourceList index description status channels"}}},
      {"/PSIA/Streaming/description", {{"GET", kAny, description}}},
      {"/PSIA/Streaming/status", {{"GET", kAny, "StreamingStatus"}}},
      {"/PSIA/Streaming/channels/1",
       {{"GET", kAny, "StreamingChannel"},
        {"PUT", 1, "status 1, command 2, table VideoEncoder",
         "<StreamingChannel><Video/></StreamingChannel>"},
        {"DELETE", 1, "status 1"}}},
      {"/PSIA/Streaming/channels/1/status",
       {{"GET", kAny, "StreamingSessionStatusList"}, {"PUT", 1, "status 3"}, {"DELETE", 1, "status 1"}}},
      {"/PSIA/Streaming/channels/1/capabilities",
       {{"GET", kAny, "StreamingChannel opt"}, {"PUT", 1, "status 3"}, {"DELETE", 1, "status 1"}}},
      {"/PSIA/Streaming/channels",
       {{"GET", kAny, "StreamingChannelList"},
        {"PUT", 1, "status 1, command 2, table VideoEncoder",
         "<StreamingChannelList><StreamingChannel><Video/></StreamingChannel></StreamingChannelList>"},
        {"POST", 1, "status 1, command 2, table VideoEncoder",
         "<StreamingChannel><Video/></StreamingChannel>"},
        {"DELETE", 1, "status 1"}}},
      {"/PSIA/Custom/Event/index",
       {{"GET", kAny, "printed ResourceList index description triggers schedule notification"},
        {"PUT", 1, "status 3"}}},
      {"/PSIA/Custom/Event/description",
       {{"GET", kAny, "printed ResourceDescription"}, {"PUT", 1, "status 3"}}},  // falls through to the event
      {"/PSIA/Custom/Event/triggers/Sensor-0",
       {{"GET", kAny, "printed EventTrigger"},
        {"PUT", 1, "status 1, table Event", trigger},
        {"DELETE", 1,
         "status 1, table Event"}}},  // POST falls through to the triggers' fixed answer, 4 as well
      {"/PSIA/Custom/Event/triggers/Sensor-0/notifications",
       {{"GET", kAny, "printed EventTriggerNotificationList"},
        {"PUT", 1, "status 1, table Event", "<EventTriggerNotificationList/>"},
        {"POST", 1, "status 1, table Event", "<EventTriggerNotification/>"},
        {"DELETE", 1, "status 1, table Event"}}},
      {"/PSIA/Custom/Event/triggers/Sensor-0/notifications/FTP-1",
       {{"GET", kAny, "printed EventTriggerNotificationList"},
        {"PUT", 1, "status 1, table Event", "<EventTriggerNotificationList/>"},
        {"POST", 1, "status 1, table Event", "<EventTriggerNotification/>"},
        {"DELETE", 1, "status 1, table Event"}}},
      {"/PSIA/Custom/Event/triggers",
       {{"GET", kAny, "printed EventTriggerList"},
        {"PUT", 1, "status 1, table Event", "<EventTriggerList>" + trigger + "</EventTriggerList>"}}},
      {"/PSIA/Custom/Event/schedule",
       {{"GET", kAny, "printed EventSchedule"}, {"PUT", 1, "status 1, table Event", "<EventSchedule/>"}}},
      {"/PSIA/Custom/Event/notification/mailing/Mail-1",
       {{"GET", kAny, "printed MailingNotification"},
        {"PUT", 1, "status 1, table SMTPServer", mail},
        {"POST", 1, "status 1", mails},  // falls through to the list; the insert is one that SQLite rejects
        {"DELETE", 1, "status 1, table SMTPServer"}}},
      {"/PSIA/Custom/Event/notification/mailing",
       {{"GET", kAny, "printed MailingNotificationList"},
        {"PUT", 1, "status 1, table SMTPServer", mails},
        {"POST", 1, "status 1", mails},
        {"DELETE", 1, "status 1, table SMTPServer"}}},
      {"/PSIA/Custom/Event/notification/ftp/FTP-1",
       {{"GET", kAny, "printed FTPNotification"},
        {"PUT", 1, "status 1, table FTPServer", ftp},
        {"POST", 1, "status 1, table FTPServer", ftps},
        {"DELETE", 1, "status 1, table FTPServer"}}},
      {"/PSIA/Custom/Event/notification/ftp",
       {{"GET", kAny, "printed FTPNotificationList"},
        {"PUT", 1, "status 1, table FTPServer", ftps},
        {"POST", 1, "status 1, table FTPServer", ftps},
        {"DELETE", 1, "status 1, table FTPServer"}}},
      {"/PSIA/Custom/Event/notification",
       {{"GET", kAny, "printed EventNotificationMethods"},
        {"PUT", 1, "status 1, table SMTPServer",
         "<EventNotificationMethods>" + mails + "</EventNotificationMethods>"}}},
      {"/PSIA/Custom/Event",
       {{"GET", kAny, "printed EventNotification"},
        {"PUT", 1, "status 1, table Event",
         "<EventNotification><EventTriggerList>" + trigger + "</EventTriggerList></EventNotification>"}}},
  };
  return all;
}

class RoutesTest : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    run_sql("insert into User values ('level4', 'level4', 4)");
    start_service();
    daemon_ = std::thread([this] {
      while (!ended_) {
        if (const auto message = camera::receive_message(std::chrono::milliseconds(20))) {
          commands_ += ", command " + std::to_string(camera::command_of(*message));
          (void)camera::send_reply(camera::reply_to(*message, 0));
        }
      }
    });
  }

  void TearDown() override {
    ended_ = true;
    daemon_.join();
    ServiceTest::TearDown();
  }

  static std::string credentials(int level) {
    return std::vector<std::string>{"admin:admin", "operator:operator", "viewer:viewer", "guest:guest",
                                    "level4:level4"}[static_cast<std::size_t>(level)];
  }

  /// What a request did, in words: the document it gave, or its status with the commands sent, the tables
  /// changed and the file written. Changes are undone.
  std::string effect(const Call& call) {
    const std::vector<std::string> before = tables();
    const std::size_t printed_before = printed().size();
    commands_.clear();
    const std::string answer = this->call(call);
    std::string effect =
        answer.empty() ? "printed " + words(printed().substr(printed_before)) : words(answer);
    effect += commands_;
    const std::vector<std::string> after = tables();
    bool changed = false;
    for (std::size_t i = 0; i < before.size(); ++i) {
      if (before[i] == after[i]) continue;
      changed = true;
      effect += std::string(", table ") + kTables[i];
    }
    if (changed) {
      EXPECT_EQ(camera::restore_factory_rows(), "");
      run_sql("insert into User values ('level4', 'level4', 4)");
    }
    const std::string upload = std::string(camera::kExchangeDirectory) + "/psia_config.dat";
    if (!read_file(upload).empty()) {
      effect += ", file psia_config.dat";
      write_file(upload, "");
    }
    return effect;
  }

 private:
  static std::vector<std::string> tables() {
    std::vector<std::string> contents;
    for (const char* table : kTables)
      contents.push_back(rows(std::string("select * from ") + table));
    return contents;
  }

  /// A document's root element, with the names in a resource list; a status code; or a text's content type.
  static std::string words(const std::string& answer) {
    const std::size_t header_end = std::min(answer.find("\r\n\r\n"), answer.find("\n\n"));
    const std::string body = answer.substr(std::min(answer.size(), header_end));
    const std::size_t code = body.find("<statusCode>");
    if (code != std::string::npos) return "status " + body.substr(code + 12, 1);
    const std::size_t declaration_end = body.find("?>");
    if (declaration_end == std::string::npos) {
      const std::size_t type = answer.find("Content-Type: ");
      return type == std::string::npos
                 ? "nothing"
                 : "text " + answer.substr(type + 14, answer.find("\r\n", type) - type - 14);
    }
    const std::size_t root = body.find('<', declaration_end) + 1;
    std::string text = body.substr(root, body.find_first_of(" >", root) - root);
    if (text == "ResourceList") {
      for (std::size_t at = body.find("<name>"); at != std::string::npos; at = body.find("<name>", at + 1)) {
        text += " " + body.substr(at + 6, body.find('<', at + 6) - at - 6);
      }
    }
    if (body.find("<id opt=") != std::string::npos) text += " opt";
    return text;
  }

  std::atomic<bool> ended_ = false;
  std::string commands_;  // touched by the daemon only while the service waits for its reply
  std::thread daemon_;
};

TEST_F(RoutesTest, EveryUrlWithEveryMethodAndLevel) {
  for (const Url& url : urls()) {
    for (const std::string method : {"GET", "PUT", "POST", "DELETE", "HEAD"}) {
      Offer offer{method, -1, ""};
      for (const Offer& offered : url.offers) {
        if (offered.method == method) offer = offered;
      }
      for (int level = 0; level <= 4; ++level) {
        const Call call{.method = method, .uri = url.uri, .body = offer.body, .user = credentials(level)};
        EXPECT_EQ(effect(call), level <= offer.highest_level ? offer.effect : "status 4")
            << method << " " << url.uri << " as level " << level;
      }
    }
  }
}

TEST_F(RoutesTest, PrefixesCaseAndLengths) {
  const std::string system_status = "DeviceStatus";
  const std::string unknown = "status 4";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"/PSIA/System/statusABC", system_status},
      {"/psia/SYSTEM/Status?x=1", system_status},
      {"/psia/INDEX", "ResourceList index indexr description System Security Streaming"},
      {"/PSIA/indexX", "ResourceList index indexr description System Security Streaming"},
      {"/PSIA/System/Audio/channels/17", "AudioChannel"},
      {"/PSIA/System/Audio/channelsX", "AudioChannelList"},
      {"/PSIA/System/time/ntpServers/", "NTPServer"},
      {"/PSIA/System/timeX", "Time"},
      {"/PSIA/System/Video/inputs/channels/10", "VideoInputChannel"},
      {"/PSIA/System/Video/inputs/channels/2", unknown},
      {"/PSIA/System/Video/inputs/", unknown},
      {"/PSIA/System/Network/interfaces/eth0/", unknown},
      {"/PSIA/System/Network/interfaces/eth0?x", unknown},
      {"/PSIA/System/Network/interfaces/eth1", unknown},
      {"/PSIA/System/Network/interfaces/ETH0/ipaddress", "IPAddress"},
      {"/PSIA/Security/AAA/users/", unknown},
      {"/PSIA/Streaming/channels/", unknown},
      {"/PSIA/Streaming/channels/1/Status", "StreamingSessionStatusList"},
      {"/PSIA/Streaming/channels/status", "StreamingSessionStatusList"},
      {"/PSIA/Streaming/channels/1/CAPABILITIES", "StreamingChannel opt"},
      {"/PSIA/Streaming/channels/1/capabilities?", "StreamingChannel"},
      {"/PSIA/Custom/Event/triggers/", unknown},  // a trigger with an empty id, which there is not
      {"/PSIA/Custom/Event/triggers/Sensor-0/x", "printed EventTriggerNotificationList"},
      {"/PSIA/Custom/Event/triggers/Sensor-0/", "printed EventTriggerNotificationList"},
      {"/PSIA/Custom/EventX", "printed EventNotification"},
      {"/PSIA", unknown},
      {"/PSIA/", unknown},
      {"/PSIA/inde", unknown},
      {"PSIA/index", unknown},
      {"/", unknown},
      {"/PSIA/%69ndex", unknown},
      {"/PSIA/nothing/" + std::string(20000, 'x'), unknown},
  };
  for (const auto& [uri, expected] : cases)
    EXPECT_EQ(effect({.uri = uri}), expected) << uri.substr(0, 80);
  for (const char* method : {"get", "GeT"}) {
    EXPECT_EQ(effect({.method = method, .uri = "/PSIA/System/status"}), system_status) << method;
  }
  for (const char* method : {"", "G", "GETX", "OPTIONS", "PATCH"}) {
    EXPECT_EQ(effect({.method = method, .uri = "/PSIA/System/status"}), unknown) << method;
  }
  EXPECT_EQ(effect({.method = "DELETE", .uri = "/PSIA/System/time/ntpServersX"}), "status 1");
}

TEST_F(RoutesTest, TheStatusDocumentShowsTheUriAsItCame) {
  EXPECT_EQ(get("/PSIA/nothing"), status(4, "/PSIA/nothing"));
  EXPECT_EQ(get("/PSIA/<a>&%20%s%n\""), status(4, "/PSIA/<a>&%20%s%n\""));
  EXPECT_EQ(get("/PSIA/100%%"), status(4, "/PSIA/100%"));
  EXPECT_EQ(get("/PSIA/%%%%20"), status(4, "/PSIA/%20"));
  const std::string longest = "/PSIA/" + std::string(60000, 'u') + "%%";
  EXPECT_EQ(get(longest), status(4, longest.substr(0, longest.size() - 1)));
}

}  // namespace
}  // namespace psia_tests
