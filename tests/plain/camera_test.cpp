#include "tests/plain/camera_test.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

namespace service_tests {

namespace {

std::string base64(const std::string& text) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string encoded;
  for (std::size_t bit = 0; bit < 8 * text.size(); bit += 6) {
    const auto byte = [&](std::size_t i) {
      return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned int bits = byte(bit / 8) << 8U | byte(bit / 8 + 1);
    encoded += alphabet[bits >> (10 - bit % 8) & 63U];
  }
  return encoded.append((4 - encoded.size() % 4) % 4, '=');
}

struct Row {
  std::string table;
  Lines columns, values;
};
using Settings = std::map<std::pair<std::string, int>, Row>;  // by table and row number

Settings all_settings() {
  Settings settings;
  for (const auto& table : camera::query("select name from sqlite_master where type='table'")) {
    Row row{.table = table[0], .columns = {}, .values = {}};
    for (const auto& column : camera::query("select name from pragma_table_info('" + table[0] + "')"))
      row.columns.push_back(column[0]);
    for (const auto& values : camera::query("select rowid, * from " + table[0])) {
      row.values = {values.begin() + 1, values.end()};
      settings[{table[0], std::stoi(values[0])}] = row;
    }
  }
  return settings;
}

/// "Event", or where the table has several rows "Audio[0]" by the first column.
std::string name_of(const Row& row, const Settings& settings) {
  const auto several = std::count_if(settings.begin(), settings.end(),
                                     [&row](const auto& s) { return s.first.first == row.table; });
  return row.table + (several > 1 ? "[" + row.values[0] + "]" : "");
}

Lines changes(const Settings& before, const Settings& after) {
  Lines lines;
  for (const auto& [key, row] : after) {
    const auto old = before.find(key);
    std::string added;
    for (std::size_t i = 0; i < row.values.size(); ++i) {
      const std::string value = row.columns[i] + " = " + row.values[i];
      if (old == before.end())
        added += (i == 0 ? "" : ", ") + value;
      else if (row.values[i] != old->second.values.at(i))
        lines.push_back(name_of(row, after) + "." + value);
    }
    if (old == before.end()) lines.push_back(name_of(row, after) + " is added: " + added);
  }
  for (const auto& [key, row] : before) {
    if (!after.contains(key)) lines.push_back(name_of(row, before) + " is deleted");
  }
  return lines;
}

const std::map<int, const char*> kCommands = {{1, "picture"},        {2, "encoder"},   {3, "audio"},
                                              {6, "time"},           {7, "time zone"}, {8, "reboot"},
                                              {10, "factory reset"}, {11, "export"},   {31, "addressing"},
                                              {33, "name servers"},  {37, "RTSP port"}};

struct Field {
  int command;
  const char* name;
  std::size_t offset;
  std::size_t text_size = 0;  // 0: a number
};
const Field kFields[] = {{1, "source", 12},       {2, "master", 16},    {6, "mode", 12},
                         {6, "server", 16, 128},  {6, "interval", 144}, {6, "year", 148},
                         {6, "month", 152},       {6, "day", 156},      {6, "hour", 160},
                         {6, "minute", 164},      {6, "second", 168},   {7, "zone", 12, 256},
                         {33, "servers", 12, 256}};

/// The whole record; "byte 200 = 7" for what belongs to no field.
std::string in_words(camera::Message message, pid_t service) {
  const int command = camera::command_of(message);
  const auto name = kCommands.find(command);
  std::string text;
  const auto tell = [&text](const std::string& field, const std::string& value) {
    text += (text.empty() ? ": " : ", ") + field + " = " + value;
  };
  if (message.type != service) tell("type", std::to_string(message.type));
  for (const Field& field : kFields) {
    if (field.command != command) continue;
    const std::string value = field.text_size != 0
                                  ? camera::text_at(message, field.offset, field.text_size)
                                  : std::to_string(camera::integer_at(message, field.offset));
    tell(field.name, value);
    std::fill_n(message.body.begin() + static_cast<long>(field.offset) - 4,
                field.text_size != 0 ? value.size() : 4, 0);
  }
  for (std::size_t i = 4; i < message.body.size(); ++i) {
    if (message.body[i] != 0) tell("byte " + std::to_string(i + 4), std::to_string(message.body[i]));
  }
  return "message " + std::to_string(command) + " " + (name == kCommands.end() ? "unknown" : name->second) +
         text;
}

/// The effects line by line, a document with an element a line.
Lines split(const Lines& effects) {
  Lines lines;
  for (const std::string& effect : effects) {
    std::istringstream rest(replaced(replaced(effect, "\r", ""), "><", ">\n<"));
    for (std::string line; std::getline(rest, line);)
      lines.push_back(line);
  }
  return lines;
}

/// What is only in the first behind "-", only in the second behind "+", with two lines around each
/// difference.
std::string difference(const Lines& expected, const Lines& got) {
  // common[i][j]: lines that expected from i on and got from j on have in common, in the same order.
  std::vector common(expected.size() + 1, std::vector<std::size_t>(got.size() + 1));
  for (std::size_t i = expected.size(); i-- > 0;) {
    for (std::size_t j = got.size(); j-- > 0;) {
      common[i][j] =
          expected[i] == got[j] ? common[i + 1][j + 1] + 1 : std::max(common[i + 1][j], common[i][j + 1]);
    }
  }
  Lines lines;
  for (std::size_t i = 0, j = 0; i < expected.size() || j < got.size();) {
    if (i < expected.size() && j < got.size() && expected[i] == got[j]) {
      lines.push_back("  " + got[j++]);
      ++i;
    } else if (j == got.size() || (i < expected.size() && common[i + 1][j] >= common[i][j + 1])) {
      lines.push_back("- " + expected[i++]);
    } else {
      lines.push_back("+ " + got[j++]);
    }
  }
  std::string text;
  for (std::size_t i = 0, told = 0; i < lines.size() && told < 30; ++i) {
    const auto begin = lines.begin() + static_cast<std::ptrdiff_t>(i < 2 ? 0 : i - 2);
    const auto end = lines.begin() + static_cast<std::ptrdiff_t>(std::min(i + 3, lines.size()));
    if (std::all_of(begin, end, [](const std::string& line) { return line[0] == ' '; })) continue;
    text += lines[i] + "\n";
    ++told;
  }
  return text;
}

}  // namespace

fastcgi::Request to_fastcgi(const Request& request) {
  fastcgi::Request sent{{{"REQUEST_URI", request.uri}, {"REQUEST_METHOD", request.method}},
                        request.body,
                        request.finished,
                        request.keep};
  if (!request.user.empty()) sent.variables["HTTP_AUTHORIZATION"] = "Basic " + base64(request.user);
  if (!request.body.empty() || request.method != "GET")
    sent.variables["CONTENT_LENGTH"] = std::to_string(request.body.size());
  for (const auto& [name, value] : request.variables) {
    sent.variables.erase(name);
    if (value) sent.variables[name] = *value;
  }
  return sent;
}

std::string joined(const std::string& text) {
  return std::regex_replace(text, std::regex("\n *"), "");
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

std::string document(const std::string& body, const std::string& content_type) {
  return "Content-Length: " + std::to_string(body.size()) + "\r\nContent-Type: " + content_type + "\r\n\r\n" +
         body;
}

std::string status(int code, const std::string& uri) {
  static const char* const words[] = {"",
                                      "OK",
                                      "Device Busy",
                                      "Device Error",
                                      "Invalid Operation",
                                      "Invalid XML Format",
                                      "Invalid XML Content",
                                      "Reboot Required"};
  return document(kXml + R"(
<ResponseStatus version="1.0" xmlns="urn:psialliance-org">
<requestURL>)" + uri +
                  "</requestURL>\n<statusCode>" + std::to_string(code) +
                  R"(</statusCode>
<!-- O=1-OK, 2-Device Busy, 3-Device Error, 4-Invalid Operation, 5-Invalid XML Format, )"
                  R"(6-Invalid XML content; 7-Reboot Required -->
<statusString>)" + words[code] +
                  R"(</statusString>
<id>1</id>
</ResponseStatus>
)");
}

std::string unauthorized() {
  return "Status: 401 Unauthorized\r\n"
         "WWW-Authenticate: Basic realm=\"Quellan Smart IP Device Authentication\"\r\n"
         "Content-Type: text/plain\r\n\r\n"
         "Unauthorized\r\n\r\n";
}

std::string printed(const std::string& body) {
  return "printed " + document(kXml + joined(body), "application/xml");
}

void execute(const std::string& sql, const char* database) {
  ASSERT_EQ(camera::execute(sql, database), "") << sql;
}

std::string rows(const std::string& select, const char* database) {
  std::string text;
  for (const Lines& row : camera::query(select, database)) {
    if (!text.empty()) text += ';';
    for (std::size_t i = 0; i < row.size(); ++i)
      text += (i == 0 ? "" : "|") + row[i];
  }
  return text;
}

std::string read_file(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

void write_file(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

void CameraTest::reset() {
  sqlite3* from = nullptr;
  sqlite3* to = nullptr;
  ASSERT_EQ(sqlite3_open(camera::kDefaultsDatabase, &from), SQLITE_OK);
  ASSERT_EQ(sqlite3_open(camera::kDatabase, &to), SQLITE_OK);
  sqlite3_busy_timeout(to, 5000);
  sqlite3_backup* const copy = sqlite3_backup_init(to, "main", from, "main");
  ASSERT_EQ(sqlite3_backup_step(copy, -1), SQLITE_DONE);
  sqlite3_backup_finish(copy);
  sqlite3_close(to);
  sqlite3_close(from);
}

void CameraTest::start_service(const Start& start) {
  write_file(kOutput, "");
  write_file(kErrors, "");
  const camera::Descriptor input =
      start.cgi ? camera::Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)) : camera::listen_at(kSocket);
  ASSERT_GE(input.number, 0);
  service_pid = fork();
  ASSERT_GE(service_pid, 0);
  if (service_pid == 0) {
    dup2(input.number, 0);
    for (const auto& [descriptor, path] : {std::pair{1, kOutput}, {2, kErrors}}) {
      dup2(open(path, O_WRONLY | O_APPEND | O_CLOEXEC), descriptor);
      if (start.close_output) close(descriptor);
    }
    for (const auto& [name, value] : start.environment)
      setenv(name.c_str(), value.c_str(), 1);
    const char* const other = std::getenv("PSIA_BINARY");
    execl(other != nullptr ? other : PSIA_BINARY, "psia.fcgi", nullptr);
    _exit(127);
  }
}

int CameraTest::stop_service(int signal) {
  kill(service_pid, signal);
  return wait_for_exit();
}

int CameraTest::wait_for_exit() {
  int state = 0;
  EXPECT_EQ(waitpid(service_pid, &state, 0), service_pid);
  service_pid = -1;
  return WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state);
}

void CameraTest::end_service() {
  if (service_pid > 0) {
    EXPECT_EQ(stop_service(SIGTERM), 0) << "standard error: " << reported();
  }
}

fastcgi::Connection CameraTest::begin(const Request& request) {
  fastcgi::Connection connection(kSocket);
  EXPECT_TRUE(connection.ok()) << "the service's socket does not answer";
  connection.send(to_fastcgi(request));
  return connection;
}

std::string CameraTest::call(const Request& request) {
  const fastcgi::Answer answer = begin(request).receive();
  EXPECT_TRUE(answer.ended) << request.method << " " << request.uri << " was cut off: " << reported();
  return answer.out;
}

Lines CameraTest::effects(const Request& request) const {
  Lines lines;
  Settings settings = all_settings();
  const std::size_t printed_before = printed_so_far().size();
  const std::size_t reported_before = reported().size();
  std::size_t messages = 0;
  const auto take_changes = [&] {
    Settings now = all_settings();
    for (const std::string& line : changes(settings, now))
      lines.push_back(line);
    settings = std::move(now);
  };
  const auto take_message = [&] {
    const std::optional<camera::Message> message = camera::receive_message();
    if (!message) return false;
    take_changes();
    lines.push_back(in_words(*message, service_pid));
    const std::optional<int> result = messages < request.replies.size() ? request.replies[messages] : 0;
    ++messages;
    if (result) {
      EXPECT_TRUE(camera::send_reply(camera::reply_to(*message, *result)));
    }
    return true;
  };
  const fastcgi::Connection connection = begin(request);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!connection.answers_within(1)) {
    take_message();
    if (std::chrono::steady_clock::now() > deadline) return {"no answer within 30 s"};
  }
  const fastcgi::Answer answer = connection.receive();
  while (take_message()) {
  }
  take_changes();
  const std::string output = printed_so_far().substr(printed_before);
  const std::string errors = reported().substr(reported_before) + answer.errors;
  if (!output.empty()) lines.push_back("printed " + output);
  if (!errors.empty()) lines.push_back("reported " + errors);
  for (int code = 1; code <= 7; ++code) {
    if (answer.out == status(code, request.uri))
      return lines.push_back("status " + std::to_string(code)), lines;
  }
  if (!answer.out.empty()) lines.push_back(answer.out);
  if (!answer.ended) lines.emplace_back("the connection was closed without an end of the request");
  return lines;
}

void CameraTest::expect_effects(const Request& request, const Lines& expected, Place place) const {
  const Lines got = effects(request);
  if (got == expected) return;
  ADD_FAILURE_AT(place.file, place.line) << "the effects (+) are not those expected (-)\n"
                                         << request.method << " " << request.uri.substr(0, 300) << "\n"
                                         << request.body.substr(0, 2000) << "\n"
                                         << difference(split(expected), split(got));
}

}  // namespace service_tests
