// The floor that the service is measured against: for each benchmarked resource the library and kernel calls
// that the service makes for it, with SQLite's defaults, and one write of the answer. Everything in an answer
// but the rows of a list and the time comes from a recording of the service's own answer, so that both send
// the same bytes. Nothing is kept from one request to the next.
#include <arpa/inet.h>
#include <fcgi_stdio.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <libxml/parser.h>
#include <net/if.h>
#include <sqlite3.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

#include "frame/paths.h"

namespace {

using std::string_view;

sqlite3* database = nullptr;

struct ControlMessage {
  long type;
  std::array<char, 4112> text;
};
int requests = -1;
int replies = -1;
ControlMessage audio_changed{getpid(), {3}};  // command 3, all else zero
ControlMessage reply{};

/// The recorded answer of a resource: the file of that name in BENCH_ANSWERS. It is mapped, so that the heap
/// is untouched before the first request.
string_view recorded(const char* name) {
  const char* directory = std::getenv("BENCH_ANSWERS");
  if (directory == nullptr || chdir(directory) != 0) return "";
  const int file = open(name, O_RDONLY | O_CLOEXEC);
  struct stat status = {};
  if (file < 0 || fstat(file, &status) != 0 || status.st_size == 0) return "";
  const auto size = static_cast<std::size_t>(status.st_size);
  void* const text = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0);
  close(file);
  return text == MAP_FAILED ? "" : string_view(static_cast<const char*>(text), size);
}

struct Recordings {
  string_view refused = recorded("401");
  string_view index = recorded("index");
  string_view indexr = recorded("indexr");
  string_view unknown = recorded("unknown");
  string_view device_info = recorded("deviceInfo");
  string_view interfaces = recorded("interfaces");
  string_view channels = recorded("channels");
  string_view capabilities = recorded("capabilities");
  string_view audio_done = recorded("put-audio");
  string_view schedule_done = recorded("put-schedule");
  string_view user_done = recorded("post-user");
};

/// A variable of the request, empty where there is none.
const char* variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

void write_answer(string_view text) {
  FCGI_fwrite(const_cast<char*>(text.data()), 1, text.size(), FCGI_stdout);
}

constexpr string_view kHeaderEnd = "\r\nContent-Type: application/xml; charset=\"UTF-8\"\r\n\r\n";
constexpr std::size_t kHeaderSize = 128;
std::array<char, 1U << 20U> document_space;  // ten times the longest document measured

/// Puts a document together behind room for its header lines.
class Document {
 public:
  void add(string_view text) {
    if (text.size() > static_cast<std::size_t>(document_space.data() + document_space.size() - end_))
      std::abort();
    std::memcpy(end_, text.data(), text.size());
    end_ += text.size();
  }
  void add_number(int number) {
    end_ = std::to_chars(end_, document_space.data() + document_space.size(), number).ptr;
  }
  void add_two_digits(int number) {
    *end_++ = static_cast<char>('0' + number / 10);
    *end_++ = static_cast<char>('0' + number % 10);
  }
  void write() {
    std::array<char, kHeaderSize> header{"Content-Length: "};
    char* at = header.data() + string_view(header.data()).size();
    at = std::to_chars(at, header.data() + header.size(), end_ - body_).ptr;
    std::memcpy(at, kHeaderEnd.data(), kHeaderEnd.size());
    const auto size = static_cast<std::size_t>(at - header.data()) + kHeaderEnd.size();
    std::memcpy(body_ - size, header.data(), size);
    write_answer({body_ - size, static_cast<std::size_t>(end_ - body_) + size});
  }

 private:
  char* body_ = document_space.data() + kHeaderSize;
  char* end_ = body_;
};

class Rows {
 public:
  explicit Rows(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    va_list values;
    va_start(values, format);
    char* statement = sqlite3_vmprintf(format, values);
    va_end(values);
    sqlite3_get_table(database, statement, &table_, &count, &columns_, nullptr);
    sqlite3_free(statement);
  }
  ~Rows() { sqlite3_free_table(table_); }
  Rows(const Rows&) = delete;
  Rows(Rows&&) = delete;
  Rows& operator=(const Rows&) = delete;
  Rows& operator=(Rows&&) = delete;

  [[nodiscard]] const char* text(int row, int column) const { return table_[(row + 1) * columns_ + column]; }
  [[nodiscard]] long number(int column) const { return std::strtol(text(0, column), nullptr, 10); }

  int count = 0;

 private:
  char** table_ = nullptr;
  int columns_ = 0;
};

void execute(const char* format, ...) __attribute__((format(printf, 1, 2)));
void execute(const char* format, ...) {
  va_list values;
  va_start(values, format);
  char* statement = sqlite3_vmprintf(format, values);
  va_end(values);
  sqlite3_exec(database, statement, nullptr, nullptr, nullptr);
  sqlite3_free(statement);
}

constexpr std::array<signed char, 256> kSixBits = [] {
  std::array<signed char, 256> table{};
  table.fill(-1);
  signed char value = 0;
  for (const char c : string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"))
    table[static_cast<unsigned char>(c)] = value++;
  return table;
}();

/// Whether the client sent a name and its password.
bool is_allowed() {
  const char* at = std::getenv("HTTP_AUTHORIZATION");
  if (at == nullptr) return false;
  std::array<char, 128> text;
  std::size_t length = 0;
  unsigned bits = 0;
  unsigned count = 0;
  for (at += 6; *at != '\0' && length < text.size() - 1; ++at) {
    const signed char value = kSixBits[static_cast<unsigned char>(*at)];
    if (value < 0) continue;
    bits = bits << 6U | static_cast<unsigned>(value);
    if (count++ % 4 != 0) text[length++] = static_cast<char>(bits >> (6 - 2 * ((count - 1) % 4)));
  }
  text[length] = '\0';
  char* colon = std::strchr(text.data(), ':');
  if (colon == nullptr) return false;
  *colon = '\0';
  const Rows user("select * from User where UserID='%s'", text.data());
  return user.count > 0 && std::strcmp(user.text(0, 1), colon + 1) == 0 && user.number(2) <= 3;
}

constexpr string_view kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n";

constexpr std::array kTimeMarks = {'-', '-', 'T', ':', ':'};

void write_time() {
  Document document;
  document.add(kDeclaration);
  document.add("<Time version=\"1.0\" xmlns=\"urn:psialliance-org\"><timeMode>");
  document.add(Rows("select DateTimeSync from Network").number(0) == 2 ? "NTP" : "manual");
  tzset();
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  document.add("</timeMode><localTime>");
  document.add_number(local.tm_year + 1900);
  const std::array fields = {local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec};
  for (std::size_t i = 0; i < fields.size(); ++i) {
    document.add({&kTimeMarks[i], 1});
    document.add_two_digits(fields[i]);
  }
  document.add("</localTime><timeZone>");
  const Rows zone("select TimeZone from Network");
  const std::string path = std::string("/usr/share/zoneinfo/") + zone.text(0, 0);
  FCGI_FILE* file = FCGI_fopen(path.c_str(), "r");
  FCGI_fseek(file, 0, SEEK_END);
  const auto size = static_cast<std::size_t>(FCGI_ftell(file));
  FCGI_rewind(file);
  std::string content(size, '\0');
  FCGI_fread(content.data(), size, 1, file);
  FCGI_fclose(file);
  content.pop_back();  // the line feed behind the last line, which holds the rule
  document.add(string_view(content).substr(content.rfind('\n') + 1));
  document.add("</timeZone></Time>");
  document.write();
}

void write_users() {
  const Rows users("select * from User");
  Document document;
  document.add(kDeclaration);
  document.add("<UserList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  for (int row = 0; row < users.count; ++row) {
    const string_view name = users.text(row, 0);
    document.add("<User version=\"1.0\"><id>");
    document.add(name);
    document.add("</id><userName>");
    document.add(name);
    document.add("</userName></User>");
  }
  document.add("</UserList>");
  document.write();
}

void write_status() {
  const Rows clients("select * from ClientList");
  Document document;
  document.add(kDeclaration);
  document.add("<StreamingStatus version=\"1.0\" xmlns=\"urn:psialliance-org\"><totalStreamingSessions>");
  document.add_number(clients.count);
  document.add("</totalStreamingSessions><StreamingSessionStatusList version=\"1.0\">");
  for (int row = 0; row < clients.count; ++row) {
    document.add("<StreamingSessionStatus version=\"1.0\"><clientAddress><ipAddress>");
    document.add(clients.text(row, 2));
    document.add("</ipAddress></clientAddress></StreamingSessionStatus>");
  }
  document.add("</StreamingSessionStatusList></StreamingStatus>");
  document.write();
}

/// What the kernel says about eth0 to one request on a socket of its own.
void ask_interface(unsigned long request) {
  const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
  ifreq interface = {};
  std::memcpy(interface.ifr_name, "eth0", sizeof "eth0");
  interface.ifr_addr.sa_family = AF_INET;
  ioctl(descriptor, request, &interface);
  close(descriptor);
}

void read_device_info() {
  { const Rows name("select DDNSHostname from Network"); }
  { const Rows identifier("select uuid from System"); }
  { const Rows model("select ModelName from System"); }
  const int device = open(psia::kFactoryData, O_RDWR);
  std::array<char, 32> serial;
  lseek(device, 256, SEEK_SET);
  (void)!read(device, serial.data(), serial.size());
  close(device);
  ask_interface(SIOCGIFHWADDR);
  const Rows firmware("select ModelID, Version from System");
}

/// Reads lines up to the one that begins with `start`, or as many as there are of these.
void read_lines(const char* path, string_view start, int wanted) {
  std::FILE* file = std::fopen(path, "r");
  std::array<char, 256> line;
  while (wanted > 0 && std::fgets(line.data(), line.size(), file) != nullptr) {
    if (string_view(line.data()).starts_with(start)) --wanted;
  }
  std::fclose(file);
}

void read_interfaces() {
  (void)Rows("select ConnectionType from Network").number(0);
  ifaddrs* first = nullptr;
  getifaddrs(&first);
  for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    if (std::strncmp(entry->ifa_name, "eth0", 4) != 0 || entry->ifa_addr->sa_family != AF_INET) continue;
    sockaddr_in address{};
    std::memcpy(&address, entry->ifa_addr, sizeof address);
    std::array<char, INET_ADDRSTRLEN> text;
    inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
  }
  freeifaddrs(first);
  ask_interface(SIOCGIFNETMASK);
  read_lines("/proc/net/route", "eth0", 1);
  read_lines("/etc/resolv.conf", "nameserver", 2);
}

void read_capture_size() {
  (void)Rows("select VideoResolution, VideoSourceFeature from Spec").number(0);
  (void)Rows("select a.ModelName, b.CaptureMode from System as a, VideoSource as b").number(1);
}

void read_encoder(int id) {
  const Rows encoder(
      "select Enable, Codec, Resolution, QualityType, Bitrate, Quality, Framerate, GOPSize from VideoEncoder where VideoEncoderID=%d",
      id);
  for (int column = 0; column < 8; ++column)
    (void)encoder.number(column);
}

void read_audio_and_port(const char* audio_statement) {
  {
    const Rows audio("%s", audio_statement);
    (void)audio.number(2);
    (void)audio.number(3);
  }
  (void)Rows("select RTSPPort from Network").number(0);
}

void read_channels() {
  read_capture_size();
  read_encoder(0);
  read_encoder(1);
  read_audio_and_port("select * from Audio where Type=0 limit 1");
}

void read_capabilities() {
  read_capture_size();
  (void)Rows("select VideoResolution from Spec").number(0);
  read_encoder(0);
  read_audio_and_port("select * from Audio where AudioID=0");
}

template <typename Take>
void walk(xmlDoc* document, const xmlNode* parent, const Take& take) {
  for (const xmlNode* node = parent->children; node != nullptr; node = node->next) {
    if (node->type != XML_ELEMENT_NODE) continue;
    if (node->children != nullptr && node->children->type == XML_ELEMENT_NODE) {
      walk(document, node, take);
      continue;
    }
    xmlChar* text = xmlNodeListGetString(document, node->children, 1);
    take(node->name, reinterpret_cast<const char*>(text));
    xmlFree(text);
  }
}

/// Reads the body and gives `take` the name and the text of each element in it that holds a text.
template <typename Take>
void read_body(const Take& take) {
  const std::size_t size = std::strtoul(variable("CONTENT_LENGTH"), nullptr, 10);
  std::string text(size, '\0');
  FCGI_fread(text.data(), size, 1, FCGI_stdin);
  xmlDoc* document = xmlParseMemory(text.data(), static_cast<int>(size));
  walk(document, xmlDocGetRootElement(document), take);
  xmlFreeDoc(document);
}

bool is(const xmlChar* name, const char* expected) {
  return xmlStrcasecmp(name, reinterpret_cast<const xmlChar*>(expected)) == 0;
}

void set_audio() {
  int enable = 0;
  read_body([&enable](const xmlChar* name, const char* text) {
    if (is(name, "enabled")) enable = is(reinterpret_cast<const xmlChar*>(text), "true") ? 1 : 0;
  });
  execute("update Audio set Enable=%d where AudioID=0", enable);
  msgsnd(requests, &audio_changed, audio_changed.text.size(), 0);
  while (msgrcv(replies, &reply, reply.text.size(), audio_changed.type, IPC_NOWAIT) < 0)
    usleep(100000);
}

void set_schedule() {
  long week = 0;
  long begin = 0;
  long end = 0;
  read_body([&](const xmlChar* name, const char* text) {
    if (is(name, "dayOfWeek")) week = 1L << std::strtol(text, nullptr, 10);
    if (is(name, "beginTime")) begin = std::strtol(text, nullptr, 10);
    if (is(name, "endTime")) end = std::strtol(text + 3, nullptr, 10);
  });
  execute("update Event set Week=%d, StartTime=%d, EndTime=%d where Trigger=0", static_cast<int>(week),
          static_cast<int>(begin * 100), static_cast<int>(end * 100));
}

void add_user() {
  std::string user;
  std::string password;
  read_body([&](const xmlChar* name, const char* text) {
    if (is(name, "userName")) user = text;
    if (is(name, "password")) password = text;
  });
  if (Rows("select count(*) from User where UserID='%s'", user.c_str()).number(0) > 0) return;
  execute("insert into User values('%s', '%s', 2)", user.c_str(), password.c_str());
}

void serve(const Recordings& recordings) {
  if (!is_allowed()) return write_answer(recordings.refused);
  const string_view uri = variable("REQUEST_URI");
  const char method = *variable("REQUEST_METHOD");
  if (uri == "/PSIA/index") return write_answer(recordings.index);
  if (uri == "/PSIA/indexr") return write_answer(recordings.indexr);
  if (uri == "/PSIA/System/time") return write_time();
  if (uri == "/PSIA/Streaming/status") return write_status();
  if (uri == "/PSIA/System/deviceInfo") {
    read_device_info();
    return write_answer(recordings.device_info);
  }
  if (uri == "/PSIA/System/Network/interfaces") {
    read_interfaces();
    return write_answer(recordings.interfaces);
  }
  if (uri == "/PSIA/Streaming/channels") {
    read_channels();
    return write_answer(recordings.channels);
  }
  if (uri == "/PSIA/Streaming/channels/1/capabilities") {
    read_capabilities();
    return write_answer(recordings.capabilities);
  }
  if (uri == "/PSIA/System/Audio/channels/1") {
    set_audio();
    return write_answer(recordings.audio_done);
  }
  if (uri == "/PSIA/Custom/Event/schedule") {
    set_schedule();
    return write_answer(recordings.schedule_done);
  }
  if (uri == "/PSIA/Security/AAA/users") {
    if (method == 'G') return write_users();
    if (method == 'P') add_user();
    if (method == 'D') execute("delete from User where UserID != 'admin' and UserID != 'anonymous'");
    return write_answer(recordings.user_done);
  }
  write_answer(recordings.unknown);
}

}  // namespace

int main() {
  if (sqlite3_open(psia::kConfigurationDatabase, &database) != SQLITE_OK) return 1;
  sqlite3_busy_timeout(database, 1000);
  requests = msgget(1111, 0666);
  replies = msgget(2222, 0666);
  const Recordings recordings;
  while (FCGI_Accept() >= 0)
    serve(recordings);
  return 0;
}
