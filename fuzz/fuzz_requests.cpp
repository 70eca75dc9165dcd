// Whole requests through the access check and the route table, with bodies that a grammar of the resources
// builds from the input. Run it inside a simulated camera: python3 simulator inside --without-daemons. This
// program plays daemons that answer at once and leave odd settings. After each request: as many answers as
// the resource gives, each as long as its header says.
#include <fcgi_stdio.h>
#include <sqlite3.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "context.h"
#include "core/access_control.h"
#include "core/paths.h"
#include "core/stop.h"
#include "core/xml.h"
#include "fuzz/target.h"
#include "index/index_documents.h"
#include "routes.h"
#include "system/time_zone_table.h"

namespace {

using Words = std::vector<std::string>;

Words words_in(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

/// What may stand in what; each line tells more of the names before the colon.
std::map<std::string, Words> contents_in(const char* rules) {
  std::map<std::string, Words> contents;
  std::istringstream lines(rules);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t colon = line.find(':');
    const Words added = words_in(line.substr(colon + 1));
    for (const std::string& name : words_in(line.substr(0, colon)))
      contents[name].insert(contents[name].end(), added.begin(), added.end());
  }
  return contents;
}

/// URLs below /PSIA, and what their body is.
const std::map<std::string, Words> kBodies = contents_in(R"(
/index /indexr /System/description /System/status /System/reboot /System/configurationData: x
/System/factoryReset? /System/factoryReset?MODE=FULL /Streaming/status /Custom/Event/index: x
/System/Audio/channels /System/Video/inputs /System/Video/inputs/channels: x
/System/Network/interfaces /System/Network/interfaces/eth0/discovery: x
/Streaming/channels/1/status /Streaming/channels/Slave-0/status /Streaming/channels/1/capabilities: x
/System/deviceInfo: DeviceInfo
/System/time: Time
/System/time/localTime: 2024-02-30T10:00:00
/System/time/timeZone: CET-1 Nowhere
/System/time/ntpServers /System/time/ntpServers/1: NTPServerList NTPServer
/System/Network/interfaces/eth0: NetworkInterface
/System/Network/interfaces/eth0/ipAddress: IPAddress
/System/Audio/channels/1: AudioChannel
/System/Video/inputs/channels/1: VideoInputChannel
/Security/AAA/users /Security/AAA/users/1 /Security/AAA/users/admin: User UserList
/Streaming/channels /Streaming/channels/1 /Streaming/channels/Slave-0: StreamingChannel StreamingChannelList
/Custom/Event: EventNotification
/Custom/Event/schedule: EventSchedule
/Custom/Event/notification: EventNotificationMethods
/Custom/Event/notification/mailing: MailingNotificationList
/Custom/Event/notification/mailing/Mail-1: MailingNotification
/Custom/Event/notification/ftp /Custom/Event/notification/ftp/FTP-1: FTPNotificationList FTPNotification
/Custom/Event/triggers /Custom/Event/triggers/Sensor-0: EventTriggerList EventTrigger
/Custom/Event/triggers/Sensor-0/notifications: EventTriggerNotificationList EventTriggerNotification
)");

/// Elements, and what they hold. A word without a rule is a text.
const std::map<std::string, Words> kContents = contents_in(R"(
DeviceInfo: deviceName
Time: timeMode localTime timeZone
NTPServerList: NTPServer
NTPServer: addressingFormatType hostName ipAddress
NetworkInterface: id IPAddress
IPAddress: ipVersion addressingType ipAddress subnetMask DefaultGateway PrimaryDNS SecondaryDNS
DefaultGateway PrimaryDNS SecondaryDNS: ipAddress
AudioChannel: enabled
VideoInputChannel: id brightnessLevel contrastLevel hueLevel
UserList: User
User: userName password
StreamingChannelList: StreamingChannel
StreamingChannel: id enabled Transport Video Audio
Transport: rtspPortNo
Video: videoCodecType videoResolutionWidth videoResolutionHeight fixedQuality videoQualityControlType
Video: constantBitRate
constantBitRate: 1
Audio: enabled audioCompressionType audioBitRate
EventNotification: EventTriggerList
EventTriggerList: EventTrigger
EventTrigger: id intervalBetweenEvents EventTriggerNotificationList
EventTriggerNotificationList: EventTriggerNotification
EventTriggerNotification: id notificationMethod notificationInterval
EventSchedule: TimeBlockList
TimeBlockList: TimeBlock
TimeBlock: dayOfWeek bitString TimeRange
TimeRange: beginTime endTime
EventNotificationMethods: MailingNotificationList FTPNotificationList
MailingNotificationList: MailingNotification
FTPNotificationList: FTPNotification
MailingNotification FTPNotification: id hostName portNo userName accountName password uploadPath
deviceName userName accountName password uploadPath: new anonymous it's %%s%n &lt;&#x41;&amp; <![CDATA[x]]>
timeMode addressingFormatType addressingType ipVersion: NTP static dynamic v4 v6
localTime beginTime endTime: 2024-02-30T25:61:61 2147483647 08:30:00 00:17:00
timeZone: CST-8 GMT0BST,M3.5.0/1,M10.5.0 CST-99
hostName ipAddress subnetMask: 192.168.1.77 255.255.255.0 name.example
id: 1 2 eth0 Master-0 Slave-0 Sensor-0 Relay-1 FTP-1 Mail-1
enabled: true false
brightnessLevel contrastLevel hueLevel dayOfWeek rtspPortNo portNo notificationInterval: 5 0 7 -1 99999999999
videoResolutionWidth videoResolutionHeight fixedQuality audioBitRate: 1920 240 176 112 20 60 32
videoCodecType videoQualityControlType audioCompressionType: MJPEG H.264 CBR VBR G.711alaw G.726
intervalBetweenEvents: 5000
notificationMethod: IO FTP SMTP
bitString: 000000001111111110000000 1 <!--c-->
)");

/// The input as a sequence of choices; zeros behind its end.
struct Choices {
  const std::uint8_t* at;
  const std::uint8_t* end;

  unsigned int byte() { return at == end ? 0U : *at++; }
  bool seldom() { return byte() >= 0xF0; }
  /// One of the words, or seldom bytes of the input as they are, up to a zero.
  std::string one_of(const Words& words) {
    const unsigned int choice = byte();
    if (choice < 0xF8) return words[choice % words.size()];
    std::string text;
    while (const unsigned int character = byte())
      text += static_cast<char>(static_cast<unsigned char>(character));
    return text;
  }
};

/// The word, as an element with contents when it has a rule.
std::string document(Choices& choices, const std::string& word) {
  const auto rule = kContents.find(word);
  if (rule == kContents.end()) return word;
  std::string contents;
  const bool holds_elements = kContents.contains(rule->second.front());
  for (unsigned int left = holds_elements ? choices.byte() % 8 : 1; left > 0; --left)
    contents += document(choices, choices.one_of(rule->second));
  return "<" + word + ">" + contents + "</" + word + ">";
}

constexpr const char* kExportName = "settings.db";
int daemons_result = 0;  // their reply to each message

[[noreturn]] void fail(const char* what, const std::string& detail) {
  std::fprintf(stderr, "%s: %s\n", what, detail.c_str());
  std::abort();
}

/// The camera as the service sees it in this very process: descriptor 0 is the body, descriptor 1 the client.
class Camera {
 public:
  Camera() {
    std::ofstream(std::string("/usr/local/httpd/htdocs/Web/updownload/") + kExportName) << "settings";
    factory_settings_ = content_of(psia::kConfigurationDatabase);
    dup2(memfd_create("body", 0), STDIN_FILENO);
    dup2(memfd_create("client", 0), STDOUT_FILENO);
    FCGI_stdin->stdio_stream = stdin;
    FCGI_stdout->stdio_stream = stdout;
    FCGI_stderr->stdio_stream = std::fopen("/dev/null", "w");
    psia::install_stop_signals();
    psia::prepare_xml();
    queues_ = psia::ControlQueues::open();
    if (!queues_ || !psia::tz_table_fill(*time_zones_)) fail("No service", "");
    if (sqlite3_open(psia::kConfigurationDatabase, &daemons_database_) != SQLITE_OK) fail("No settings", "");
    sqlite3_get_table(daemons_database_,
                      "select 'update ' || t.name || ' set \"' || c.name || '\"=', 'delete from ' || t.name "
                      "from sqlite_master t, pragma_table_info(t.name) c where t.type='table'",
                      &changes_, &columns_, nullptr, nullptr);
    if (columns_ == 0) fail("No simulated camera", "this program runs inside one");
  }

  /// A start of the service, in the factory state of the camera.
  void start() {
    database_.reset();
    std::ofstream(psia::kConfigurationDatabase, std::ios::binary) << factory_settings_;
    sqlite3_db_release_memory(daemons_database_);  // it may take the file for the one that it knows
    environment_.reset();
    environment_.emplace();
    if (!database_.emplace().open(psia::kConfigurationDatabase)) fail("No database", "");
  }

  /// Changes the settings, as a daemon might.
  void change_settings(Choices& choices) {
    static const Words values = words_in("0 1 2 3 4 5 65 -1 99999999999 aaaaaaaaaaaaaaaa CST-0 Relay-1");
    const unsigned int column = 1 + choices.byte() % static_cast<unsigned int>(columns_);
    const std::string value = choices.seldom() ? "null" : "'" + choices.one_of(values) + "'";
    const std::string update = changes_[2 * column] + value;
    const std::string statement = choices.seldom() ? changes_[2 * column + 1] : update;
    sqlite3_exec(daemons_database_, statement.c_str(), nullptr, nullptr, nullptr);
  }

  /// What the client receives, nothing when it is refused.
  std::optional<std::string> serve(const char* authorization, psia::Request request,
                                   const std::string& body) {
    replace(STDIN_FILENO, body);
    replace(STDOUT_FILENO, "");
    environment_->restore_tz();
    queues_->begin_request();
    psia::Context context{*environment_, *database_, *queues_, *time_zones_, index_documents_};
    request.level = psia::check_access(*database_, authorization);
    if (request.level >= 0) psia::dispatch(context, request);
    std::fflush(stdout);
    if (request.level < 0) return std::nullopt;
    return content_of("/proc/self/fd/1");
  }

 private:
  static std::string content_of(const char* path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
  }

  static void replace(int descriptor, const std::string& content) {
    if (ftruncate(descriptor, 0) != 0 ||
        pwrite(descriptor, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) {
      fail("No body", "");
    }
    lseek(descriptor, 0, SEEK_SET);
  }

  std::optional<psia::Environment> environment_;
  std::optional<psia::Database> database_;
  std::optional<psia::ControlQueues> queues_;
  psia::TzPairListOwner time_zones_{psia::tz_pair_list_create()};
  psia::IndexDocuments index_documents_;
  std::string factory_settings_;  // the database file
  sqlite3* daemons_database_ = nullptr;
  int columns_ = 0;           // of all tables
  char** changes_ = nullptr;  // after the headings an update and a deletion for each column
};

/// How many answers `out` holds; each must be as long as it says.
int count_answers(const std::string& out) {
  static const std::regex header(
      "Content-Length: (\\d+)\r\nContent-Type: [^\r]*\r\n\r\n|"
      "Content-Type: application/octet-stream\nContent-length: (\\d+)\n\n");
  int answers = 0;
  for (std::string rest = out; !rest.empty(); ++answers) {
    if (rest.starts_with("Content-Type: application/xml; charset=\"UTF-8\"\n\n")) return answers + 1;
    std::smatch found;
    if (!std::regex_search(rest, found, header, std::regex_constants::match_continuous))
      fail("No answer", rest);
    const std::size_t length = found.str().size() + std::stoul(found.str(1) + found.str(2));
    if (length > rest.size()) fail("The answer is shorter than it says", out);
    rest.erase(0, length);
  }
  return answers;
}

void request_once(Camera& camera, Choices& choices) {
  static const Words methods = words_in("GET PUT POST DELETE");
  // admin, guest, and somebody with a wrong password.
  static const Words users = {"Basic YWRtaW46YWRtaW4=", "Basic Z3Vlc3Q6Z3Vlc3Q=", "Basic YWRtaW46"};
  if (choices.seldom()) camera.change_settings(choices);
  const auto& [url, roots] = *std::next(kBodies.begin(), choices.byte() % std::ssize(kBodies));
  const std::string uri = "/PSIA" + (choices.seldom() ? choices.one_of({url}) : url);
  const std::string method = choices.one_of(methods);
  const std::string authorization = choices.seldom() ? choices.one_of(users) : users[0];
  daemons_result = static_cast<int>(choices.byte() % 4);
  const std::string body = document(choices, choices.one_of(roots));
  const std::string length = choices.seldom() ? choices.one_of(users) : std::to_string(body.size());

  const psia::Request request{uri.c_str(), method.c_str(), length.c_str(), 0, ""};
  const std::optional<std::string> out = camera.serve(authorization.c_str(), request, body);
  if (!out) return;
  // Some accounts get no answer; of a list of accounts each failure is told, and the end.
  const bool is_user = strncasecmp(uri.c_str(), "/PSIA/Security/AAA/users", 24) == 0;
  if (count_answers(*out) != 1 && !is_user)
    fail("Not one answer", method + " " + uri + " " + body + "\n" + *out);
}

}  // namespace

// The queues and the daemons behind them; these take the places of the system's calls.

extern "C" int msgsnd(int /*queue*/, const void* /*message*/, std::size_t /*size*/, int /*flags*/) {
  return 0;
}

extern "C" ssize_t msgrcv(int /*queue*/, void* message, std::size_t size, long type, int /*flags*/) {
  struct Reply {
    long type;
    std::int32_t command;
    std::int32_t result;
    char payload[16];
  } reply{.type = type, .command = 0, .result = daemons_result, .payload = {}};
  std::strcpy(reply.payload, kExportName);
  std::memset(message, 0, sizeof(long) + size);
  std::memcpy(message, &reply, sizeof reply);
  return static_cast<ssize_t>(size);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Camera camera;
  camera.start();
  Choices choices{data, data + size};
  while (choices.at != choices.end)
    request_once(camera, choices);
  return 0;
}
