// Whole requests through the route table, with bodies that a small grammar builds from the input, in a
// simulated camera whose daemons answer at once. After each: as many answers as the resource gives, each as
// long as its header says, and no message about a change without the statement that made the change.
#include <fcgi_stdio.h>
#include <sqlite3.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "frame/service.h"
#include "frame/stop.h"
#include "frame/xml.h"
#include "index/index_documents.h"
#include "routes.h"
#include "simulator/camera/daemons.h"
#include "simulator/device/device.h"
#include "system/time_zone_table.h"

namespace {

/// Words that stand apart in a text.
using Words = std::vector<std::string>;

Words words_in(const char* text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

// Prefixes of the routes, and ends that choose among what they serve.
const Words kUris = words_in(R"(/PSIA/index /PSIA/indexr /PSIA/System/reboot /PSIA/System/configurationData
/PSIA/System/factoryReset?MODE=FULL /PSIA/System/factoryReset? /PSIA/System/deviceInfo /PSIA/System/status
/PSIA/System/time /PSIA/System/time/localTime /PSIA/System/time/timeZone /PSIA/System/time/ntpServers
/PSIA/System/time/ntpServers/1 /PSIA/System/Network/interfaces /PSIA/System/Network/interfaces/eth0
/PSIA/System/Network/interfaces/eth0/ipAddress /PSIA/System/Network/interfaces/eth0/discovery
/PSIA/System/Audio/channels /PSIA/System/Audio/channels/1 /PSIA/System/Video/inputs
/PSIA/System/Video/inputs/channels /PSIA/System/Video/inputs/channels/1 /PSIA/Security/AAA/users
/PSIA/Security/AAA/users/ /PSIA/Security/AAA/users/oper /PSIA/Streaming/status /PSIA/Streaming/channels
/PSIA/Streaming/channels/Slave-0 /PSIA/Streaming/channels/1/status /PSIA/Streaming/channels/1/capabilities
/PSIA/Custom/Event /PSIA/Custom/Event/index /PSIA/Custom/Event/description /PSIA/Custom/Event/schedule
/PSIA/Custom/Event/notification /PSIA/Custom/Event/notification/mailing
/PSIA/Custom/Event/notification/mailing/ /PSIA/Custom/Event/notification/ftp
/PSIA/Custom/Event/notification/ftp/ /PSIA/Custom/Event/triggers /PSIA/Custom/Event/triggers/Sensor-0
/PSIA/Custom/Event/triggers/Sensor-0/notifications)");

const Words kMethods = words_in("PUT GET POST DELETE put TRACE");

const Words kNames = words_in(
    R"(DeviceInfo Time NTPServerList NTPServer NetworkInterface IPAddress User UserList AudioChannel
VideoInputChannel Video Audio StreamingChannel Transport StreamingChannelList EventSchedule DayList
TimeBlock TimeBlockList Event TimeRange EventTrigger EventTriggerList EventTriggerNotification
EventTriggerNotificationList EventNotificationMethods MailingNotification MailingNotificationList
FTPNotification FTPNotificationList DefaultGateway PrimaryDNS SecondaryDNS deviceName timeMode localTime
timeZone hostName id ipVersion addressingType ipAddress subnetMask userName password enabled rtspPortNo
videoCodecType videoResolutionWidth videoResolutionHeight fixedQuality videoQualityControlType
constantBitRate maxFrameRate audioCompressionType audioBitRate brightnessLevel contrastLevel hueLevel
dayOfWeek beginTime endTime intervalBetweenEvents notificationMethod notificationInterval
addressingFormatType portNo accountName uploadPath bitString)");

const Words kValues = words_in(
    R"(true false 1 0 -1 2147483648 eth0 v4 static dynamic 192.168.1.77 255.255.255.0 ipaddress hostname Master-0
Slave-0 MJPEG VBR G.726 1920 240 NTP manual 2026-02-30T25:61:61 CST-8 GMT0BST,M3.5.0/1,M10.5.0 Asia/Taipei
Sensor-0 IO FTP SMTP oper anonymous 08:30:00 it's %%s%n &lt;&#x41;&amp; <![CDATA[x]]> <!--c-->
xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx)");

/// The input as a sequence of choices; zeros behind its end.
class Choices {
 public:
  Choices(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}
  unsigned int byte() { return at_ == end_ ? 0U : *at_++; }
  [[nodiscard]] bool left() const { return at_ != end_; }
  std::string one_of(const Words& words) {
    const unsigned int choice = byte();
    return choice >= 0xF0 ? raw() : words[choice % words.size()];
  }
  /// Bytes of the input as they are, without zeros.
  std::string raw() {
    std::string text;
    for (unsigned int length = byte() % 64; length > 0 && left(); --length)
      text += static_cast<char>(static_cast<unsigned char>(byte()));
    return text.substr(0, text.find('\0'));
  }

 private:
  const std::uint8_t* at_;
  const std::uint8_t* end_;
};

void add_element(Choices& choices, std::string& body, int depth) {
  const std::string name = choices.one_of(kNames);
  body += "<" + name + ">";
  if (const unsigned int kind = choices.byte() % 8; kind < 4 || depth > 4) {
    body += choices.one_of(kValues);
  } else {
    for (unsigned int children = kind; children > 3 && choices.left(); --children)
      add_element(choices, body, depth + 1);
  }
  body += "</" + name + ">";
}

int changes = 0;    // statements of this request that change something
int announced = 0;  // messages of this request that tell of a change
int daemons_result = 0;

int count_statement(unsigned int /*type*/, void* /*context*/, void* /*statement*/, void* text) {
  if (strncasecmp(static_cast<const char*>(text), "select", 6) != 0) ++changes;
  return 0;
}

int watch(sqlite3* connection, const char** /*error*/, const sqlite3_api_routines* /*api*/) {
  return sqlite3_trace_v2(connection, SQLITE_TRACE_STMT, count_statement, nullptr);
}

[[noreturn]] void fail(const char* what, const std::string& detail) {
  std::fprintf(stderr, "%s: %s\n", what, detail.c_str());
  std::abort();
}

/// The camera as the service sees it in this very process: descriptor 0 is the body, descriptor 1 the client.
class Camera {
 public:
  Camera() {
    for (const std::string& fault : {camera::enter_private_device(), camera::reset_device()}) {
      if (!fault.empty()) fail("A simulated camera is needed", fault);
    }
    std::ofstream(std::string(camera::kExchangeDirectory) + "/" + camera::kExportName) << "settings";
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(watch));
    dup2(memfd_create("body", 0), STDIN_FILENO);
    dup2(memfd_create("client", 0), STDOUT_FILENO);
    FCGI_stdin->stdio_stream = stdin;
    FCGI_stdout->stdio_stream = stdout;
    FCGI_stderr->stdio_stream = std::fopen("/dev/null", "w");
    psia::install_stop_signals();
    psia::prepare_xml();
    queues_ = psia::ControlQueues::open();
    if (!database_.open(psia::kConfigurationDatabase) || !queues_ || !psia::tz_table_fill(*time_zones_))
      fail("No service", "");
  }

  /// What the client receives. `result` is the daemons' reply to each message.
  std::string serve(const psia::Request& request, const std::string& body, int result) {
    if (++served_ % 256 == 0) (void)camera::restore_factory_rows();
    replace(STDIN_FILENO, body);
    replace(STDOUT_FILENO, "");
    changes = 0;
    announced = 0;
    daemons_result = result;
    queues_->begin_request();
    psia::Service service{environment_, database_, *queues_, *time_zones_, index_documents_};
    psia::dispatch(service, request);
    std::fflush(stdout);
    std::ostringstream out;
    out << std::ifstream("/proc/self/fd/1").rdbuf();
    return out.str();
  }

 private:
  static void replace(int descriptor, const std::string& content) {
    if (ftruncate(descriptor, 0) != 0 ||
        pwrite(descriptor, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) {
      fail("No body", "");
    }
    lseek(descriptor, 0, SEEK_SET);
  }

  psia::Environment environment_;
  psia::Database database_;
  std::optional<psia::ControlQueues> queues_;
  psia::TzPairListOwner time_zones_{psia::tz_pair_list_create()};
  psia::IndexDocuments index_documents_;
  unsigned int served_ = 0;
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

}  // namespace

// The queues and the daemons behind them; these take the places of the system's calls.

extern "C" int msgsnd(int /*queue*/, const void* message, std::size_t /*size*/, int /*flags*/) {
  const std::int32_t command = camera::command_of(*static_cast<const camera::Message*>(message));
  for (const std::int32_t told : {1, 2, 3, 7, 31, 37}) {
    if (command == told) ++announced;
  }
  return 0;
}

extern "C" ssize_t msgrcv(int /*queue*/, void* message, std::size_t size, long type, int /*flags*/) {
  camera::Message& reply = *static_cast<camera::Message*>(message);
  reply = {.type = type};
  camera::put_integer(reply, 8, daemons_result);
  camera::put_text(reply, 12, camera::kExportName);
  return static_cast<ssize_t>(size);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Camera camera;
  Choices choices(data, size);
  std::string uri = choices.one_of(kUris);
  if (choices.byte() % 4 == 0) uri += choices.raw();
  const std::string method = choices.one_of(kMethods);
  const auto level = static_cast<int>(choices.byte() % 5);
  const auto result = static_cast<int>(choices.byte() % 4);
  const bool is_raw = choices.byte() % 8 == 7;
  const std::string length_of_its_own = choices.byte() % 16 == 15 ? choices.raw() : "";
  std::string body;
  while (choices.left()) {
    if (is_raw) {
      body += choices.one_of(kValues);
    } else {
      add_element(choices, body, 0);
    }
  }
  const std::string length = length_of_its_own.empty() ? std::to_string(body.size()) : length_of_its_own;

  const std::string out = camera.serve({.uri = uri.c_str(),
                                        .method = method.c_str(),
                                        .content_length = length.c_str(),
                                        .level = level,
                                        .tail = ""},
                                       body, result);
  const int answers = count_answers(out);
  // Accounts that must stay get no answer; of a list of accounts each failure is told and then the end.
  const bool is_user = strncasecmp(uri.c_str(), "/PSIA/Security/AAA/users", 24) == 0;
  if (answers != 1 && !is_user) fail("Not one answer", method + " " + uri + " " + body + "\n" + out);

  if (announced > changes) fail("A message without a statement", method + " " + uri + " " + body);
  return 0;
}
