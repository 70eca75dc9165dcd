// Whole requests through the access check and the route table, and changes of the settings between them. Run
// it inside a simulated camera: python3 simulator inside --without-daemons. This program plays daemons that
// answer at once. After each request: as many answers as the resource gives, each as long as its header says.
//
// An input is text. An empty line ends a request, which is this line and then its body:
//   METHOD URI [RESULT [CREDENTIALS [LENGTH]]]
// RESULT is that of the daemons, 0 unless told. CREDENTIALS are in base 64, admin's unless told.
// Instead of a request, a change as a daemon might make it, to null without a value:
//   Settings TABLE [COLUMN [VALUE]]
// Without a column all rows are deleted.
#include <fcgi_stdio.h>
#include <sqlite3.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <string>

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

int daemons_result = 0;  // their reply to each message

[[noreturn]] void fail(const char* what, const std::string& detail) {
  std::fprintf(stderr, "%s: %s\n", what, detail.c_str());
  std::abort();
}

/// The camera as the service sees it in this very process: descriptor 0 is the body, descriptor 1 the client.
class Camera {
 public:
  Camera() {
    std::ofstream("/usr/local/httpd/htdocs/Web/updownload/settings.db") << "settings";
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

  /// What follows "Settings" in the input.
  void change_settings(std::istream& words) {
    std::string table;
    std::string column;
    std::string value;
    words >> table >> column >> value;
    const char* const stored = value.empty() ? nullptr : value.c_str();
    char* const statement = column.empty() ? sqlite3_mprintf("delete from \"%w\"", table.c_str())
                                           : sqlite3_mprintf("update \"%w\" set \"%w\" = %Q", table.c_str(),
                                                             column.c_str(), stored);
    sqlite3_exec(daemons_database_, statement, nullptr, nullptr, nullptr);
    sqlite3_free(statement);
  }

  /// What the client receives, nothing when it is refused.
  std::optional<std::string> serve(const std::string& authorization, psia::Request request,
                                   const std::string& body) {
    replace(STDIN_FILENO, body);
    replace(STDOUT_FILENO, "");
    environment_->restore_tz();
    queues_->begin_request();
    psia::Context context{*environment_, *database_, *queues_, *time_zones_, index_documents_};
    request.level = psia::check_access(*database_, authorization.c_str());
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
    std::ofstream("/proc/self/fd/" + std::to_string(descriptor), std::ios::binary) << content;
    lseek(descriptor, 0, SEEK_SET);
  }

  std::optional<psia::Environment> environment_;
  std::optional<psia::Database> database_;
  std::optional<psia::ControlQueues> queues_;
  psia::TzPairListOwner time_zones_{psia::tz_pair_list_create()};
  psia::IndexDocuments index_documents_;
  std::string factory_settings_;  // the database file
  sqlite3* daemons_database_ = nullptr;
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

void run(Camera& camera, const std::string& block) {
  const std::size_t line_end = std::min(block.find('\n'), block.size());
  std::istringstream words(block.substr(0, line_end));
  const std::string body = block.substr(std::min(line_end + 1, block.size()));
  std::string method;
  std::string uri;
  std::string credentials = "YWRtaW46YWRtaW4=";
  std::string length = std::to_string(body.size());
  words >> method;
  if (method == "Settings") return camera.change_settings(words);
  daemons_result = 0;
  words >> uri >> daemons_result >> credentials >> length;

  const psia::Request request{uri.c_str(), method.c_str(), length.c_str(), 0, ""};
  const std::optional<std::string> out = camera.serve("Basic " + credentials, request, body);
  if (!out) return;
  // Some accounts get no answer; of a list of accounts each failure is told, and the end.
  const bool is_user = strncasecmp(uri.c_str(), "/PSIA/Security/AAA/users", 24) == 0;
  if (count_answers(*out) != 1 && !is_user) fail("Not one answer", block + "\n" + *out);
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
  } reply{.type = type, .command = 0, .result = daemons_result, .payload = "settings.db"};
  std::memset(message, 0, sizeof(long) + size);
  std::memcpy(message, &reply, sizeof reply);
  return static_cast<ssize_t>(size);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Camera camera;
  camera.start();
  const std::string input(reinterpret_cast<const char*>(data), size);
  for (std::size_t begin = 0; begin < size;) {
    const std::size_t end = std::min(input.find("\n\n", begin), size);
    run(camera, input.substr(begin, end - begin));
    begin = end + 2;
  }
  return 0;
}
