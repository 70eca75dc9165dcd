#include "tests/support/service_fixture.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

namespace psia_tests {

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

/// What an answer or a printed document is: its status code, the root element of a document, or the content
/// type of a text.
std::string kind_of(const std::string& answer, const std::string& uri) {
  std::smatch found;
  if (std::regex_search(answer, found, std::regex("<statusCode>(.)"))) {
    const std::string right = status(found.str(1)[0] - '0', uri);
    if (!answer.starts_with(right)) return "a wrong status: " + std::string(same(answer, right).message());
    const std::string rest = answer.substr(right.size());
    return "status " + found.str(1) + (rest.empty() ? "" : ", " + kind_of(rest, uri));
  }
  if (!std::regex_search(answer, found, std::regex(R"(\?>\s*<(\w+))"))) {
    return std::regex_search(answer, found, std::regex("Content-Type: [^\r\n]*")) ? found.str() : answer;
  }
  return found.str(1) + (answer.find("<id opt=") != std::string::npos ? " with options" : "");
}

struct TableRow {
  std::string before, subject, replies, expected;
};

/// The lines that are not empty, each with those that continue it.
std::vector<std::string> lines_in(const std::string& table) {
  std::vector<std::string> lines;
  std::istringstream rest(replaced(table, {{"\n ", " "}}));
  for (std::string line; std::getline(rest, line);) {
    if (!line.empty()) lines.push_back(line);
  }
  return lines;
}

/// `text` once with each alternative of the first {a|b|...} in it.
std::vector<std::string> alternatives_of(const std::string& text) {
  std::smatch found;
  if (!std::regex_search(text, found, std::regex(R"(\{([^{}]*\|[^{}]*)\})"))) return {text};
  std::vector<std::string> result;
  std::istringstream rest(found.str(1) + "|");
  for (std::string alternative; std::getline(rest, alternative, '|');) {
    for (const std::string& more : alternatives_of(found.prefix().str() + alternative + found.suffix().str()))
      result.push_back(more);
  }
  return result;
}

std::vector<TableRow> rows_of(const std::string& table) {
  std::vector<TableRow> result;
  Pairs words = {{"always", ""}};
  const std::regex definition(R"((\S+) := (.*))");
  const std::regex form(R"((?:(.*?) :: *)?(.*?)(?: *<- ([-\d ]+?))? *=> *(.*))");
  std::smatch parts;
  for (std::string line : lines_in(table)) {
    if (std::regex_match(line, parts, definition)) {
      const std::string text = replaced(parts[2], words);
      std::erase_if(words, [&parts](const auto& known) { return known.first == parts[1]; });
      words.emplace_back(parts[1], text);
    } else {
      line = replaced(line, words);
      EXPECT_TRUE(std::regex_match(line, parts, form)) << "a row without => : " << line;
      for (const std::string& subject : alternatives_of(parts[2]))
        result.push_back({replaced("always;", words) + parts.str(1), subject, parts[3], parts[4]});
    }
  }
  return result;
}

/// A part of a message's payload.
struct Field {
  int command;
  std::size_t offset;
  const char* name;
  std::size_t text_size = 0;  // 0: a number
};
const Field kFields[] = {{1, 12, "source"},       {2, 16, "master"},    {6, 12, "mode"},
                         {6, 16, "server", 128},  {6, 144, "interval"}, {6, 148, "year"},
                         {6, 152, "month"},       {6, 156, "day"},      {6, 160, "hour"},
                         {6, 164, "minute"},      {6, 168, "second"},   {7, 12, "zone", 256},
                         {33, 12, "servers", 256}};

}  // namespace

fastcgi::Request to_request(const Call& call) {
  fastcgi::Request request{
      {{"REQUEST_URI", call.uri}, {"REQUEST_METHOD", call.method}}, call.body, call.finished, call.keep};
  if (!call.user.empty()) request.variables["HTTP_AUTHORIZATION"] = "Basic " + base64(call.user);
  if (!call.body.empty() || call.method != "GET") {
    request.variables["CONTENT_LENGTH"] = std::to_string(call.body.size());
  }
  for (const auto& [name, value] : call.variables) {
    request.variables.erase(name);
    if (value) request.variables[name] = *value;
  }
  return request;
}

std::string xml(const std::string& brief) {
  if (brief.starts_with('"')) return brief.substr(1, brief.size() - 2);
  const std::regex token(R"(([^ \n!'{(=<)]+)(!|'|\{([^}]*)\})?(\(|=`([^`]*)`|=([^ \n)]*))|\)|<[^>]*>)");
  std::string text;
  std::vector<std::string> open;  // elements
  for (std::sregex_iterator at(brief.begin(), brief.end(), token); at != std::sregex_iterator(); ++at) {
    const std::smatch& match = *at;
    if (match[0] == ")") {
      text += "</" + open.back() + ">";
      open.pop_back();
    } else if (match.length(1) == 0) {
      text += match[0];
    } else {
      const std::string attributes = match[2] == "!"   ? R"( version="1.0" xmlns="urn:psialliance-org")"
                                     : match[2] == "'" ? R"( version="1.0")"
                                                       : (match.length(3) > 0 ? " " : "") + match.str(3);
      text += "<" + match.str(1) + attributes + ">" + match.str(5) + match.str(6);
      if (match[4] == "(") open.push_back(match[1]);
      if (match[4] != "(") text += "</" + match.str(1) + ">";
    }
  }
  return text;
}

std::string element(const std::string& name, const std::string& content) {
  return "<" + name + ">" + content + "</" + name + ">";
}

std::string repeated(int count, const std::string& text) {
  std::string result;
  for (int i = 0; i < count; ++i)
    result += text;
  return result;
}

std::string replaced(std::string text, const Pairs& pairs) {
  for (const auto& [from, to] : pairs) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
      text.replace(at, from.size(), to);
  }
  return text;
}

std::string for_each(const std::string& rows, const std::string& pattern) {
  const std::regex columns("^(.*?)" + repeated(4, R"((?: \| (.*?))?)") + "$");
  std::string text;
  for (const std::string& row : lines_in(rows))
    text += std::regex_replace(row, columns, pattern);
  return text;
}

std::string document(const std::string& body, const std::string& content_type) {
  return "Content-Length: " + std::to_string(body.size()) + "\r\nContent-Type: " + content_type + "\r\n\r\n" +
         body;
}

std::string status(int code, const std::string& uri) {
  static const char* const words[] = {
      "", "OK", "Device Busy", "Device Error", "Invalid Operation", "Invalid XML Format"};
  return document(kLineXml + "<ResponseStatus version=\"1.0\" xmlns=\"urn:psialliance-org\">\n<requestURL>" +
                  uri + "</requestURL>\n<statusCode>" + std::to_string(code) +
                  "</statusCode>\n<!-- O=1-OK, 2-Device Busy, 3-Device Error, 4-Invalid Operation, "
                  "5-Invalid XML Format, 6-Invalid XML content; 7-Reboot Required -->\n<statusString>" +
                  words[code] + "</statusString>\n<id>1</id>\n</ResponseStatus>\n");
}

std::string unauthorized() {
  return "Status: 401 Unauthorized\r\n"
         "WWW-Authenticate: Basic realm=\"Quellan Smart IP Device Authentication\"\r\n"
         "Content-Type: text/plain\r\n\r\n"
         "Unauthorized\r\n\r\n";
}

std::string body_of(const std::string& answer) {
  const std::size_t end = answer.find("\r\n\r\n");
  return end == std::string::npos ? "" : answer.substr(end + 4);
}

std::string with_now(std::string answer, std::time_t since, int offset) {
  for (std::time_t time = since + offset; time <= std::time(nullptr) + offset; ++time) {
    char text[20];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", std::gmtime(&time));
    if (const auto at = answer.find(text); at != std::string::npos) return answer.replace(at, 19, kNow);
  }
  return answer;
}

testing::AssertionResult same(const std::string& actual, const std::string& expected) {
  if (actual == expected) return testing::AssertionSuccess();
  // The length, in the first line, tells less than what makes it differ.
  const std::string got = actual.substr(actual.find('\n') + 1);
  const std::string wanted = expected.substr(expected.find('\n') + 1);
  if (got == wanted) return testing::AssertionFailure() << "only the first line: " << actual.substr(0, 200);
  const auto first = std::mismatch(got.begin(), got.end(), wanted.begin(), wanted.end()).first - got.begin();
  const auto from = static_cast<std::size_t>(std::max<std::ptrdiff_t>(first - 100, 0));
  return testing::AssertionFailure() << "byte " << first << " behind the first line differs\n  expected "
                                     << testing::PrintToString(wanted.substr(from, 300)) << "\n  but got  "
                                     << testing::PrintToString(got.substr(from, 300));
}

std::string rows(const std::string& select, const char* database) {
  std::string text;
  for (const std::vector<std::string>& row : camera::query(select, database)) {
    if (!text.empty()) text += ';';
    for (std::size_t i = 0; i < row.size(); ++i)
      text += (i == 0 ? "" : "|") + row[i];
  }
  return text;
}

void run_sql(const std::string& statement, const char* database) {
  ASSERT_EQ(camera::execute(statement, database), "") << statement;
}

std::string read_file(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

void write_file(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

Settings all_settings() {
  std::string selects;
  for (const auto& table : camera::query("select name from sqlite_master where type='table'"))
    selects += "select '" + table[0] + "/' || rowid, * from " + table[0] + ";";
  Settings settings;
  for (const auto& row : camera::query(selects))
    settings[row[0]] = {row.begin() + 1, row.end()};
  return settings;
}

std::string differences(const Settings& before, const Settings& after) {
  std::string text;
  for (const auto& [key, row] : after) {
    const std::string table = key.substr(0, key.find('/'));
    const auto old = before.find(key);
    if (old == before.end()) {
      text += "; +" + table + " " +
              rows("select * from " + table + " where rowid=" + key.substr(table.size() + 1));
    } else if (old->second != row) {
      text += "; " + table;
      if (rows("select count(*) from " + table) != "1") text += "/" + old->second[0];
      const auto names = camera::query("select name from pragma_table_info('" + table + "')");
      for (std::size_t i = 0; i < row.size(); ++i) {
        if (row[i] != old->second[i]) text += " " + names[i][0] + "=" + row[i];
      }
    }
  }
  for (const auto& [key, row] : before) {
    if (!after.contains(key)) text += "; -" + key.substr(0, key.find('/') + 1) + row[0];
  }
  return text;
}

void ServiceTest::TearDown() {
  if (service_pid > 0) {
    EXPECT_EQ(stop_service(SIGTERM), 0) << "standard error: " << reported();
  }
}

void ServiceTest::start_service(const Start& start) {
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

int ServiceTest::stop_service(int signal) {
  kill(service_pid, signal);
  return wait_for_exit();
}

int ServiceTest::wait_for_exit() {
  int state = 0;
  const pid_t ended = waitpid(service_pid, &state, 0);
  EXPECT_EQ(ended, service_pid);
  service_pid = -1;
  return WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state);
}

fastcgi::Connection ServiceTest::begin(const Call& call) const {
  fastcgi::Connection connection(kSocket);
  EXPECT_TRUE(connection.ok()) << "the service's socket does not answer";
  connection.send(to_request(call));
  return connection;
}

fastcgi::Answer ServiceTest::exchange(const Call& call) {
  fastcgi::Answer answer = begin(call).receive();
  EXPECT_TRUE(answer.ended) << call.method << " " << call.uri
                            << " was cut off; standard error: " << reported();
  return answer;
}

std::string ServiceTest::in_words(camera::Message message) const {
  std::string text = "message " + std::to_string(camera::command_of(message));
  if (message.type != service_pid) text += " of type " + std::to_string(message.type);
  const auto tell = [&text](const std::string& name, const std::string& value) {
    text += " " + name + "=" + value;
  };
  for (const Field& field : kFields) {
    if (field.command != camera::command_of(message)) continue;
    const std::string value = field.text_size != 0
                                  ? camera::text_at(message, field.offset, field.text_size)
                                  : std::to_string(camera::integer_at(message, field.offset));
    if (!value.empty() && value != "0") tell(field.name, value);
    std::fill_n(message.body.begin() + static_cast<long>(field.offset) - 4,
                field.text_size != 0 ? value.size() : 4, 0);
  }
  for (std::size_t offset = 8; offset <= 4112; offset += 4) {
    if (camera::integer_at(message, offset) != 0)
      tell(std::to_string(offset), std::to_string(camera::integer_at(message, offset)));
  }
  return text;
}

std::string ServiceTest::effect(const Call& call, const std::vector<int>& replies) {
  Settings settings = all_settings();
  const std::size_t printed_before = printed().size();
  std::string text;
  const auto tell_changes = [&] {
    const Settings now = all_settings();
    text += differences(settings, now);
    settings = now;
  };
  messages.clear();
  const auto answer_message = [&] {
    const std::optional<camera::Message> message = camera::receive_message();
    if (!message) return false;
    tell_changes();
    text += "; " + in_words(*message);
    const int result = messages.size() < replies.size() ? replies[messages.size()] : 0;
    EXPECT_TRUE(camera::send_reply(camera::reply_to(*message, result)));
    messages.push_back(*message);
    return true;
  };
  const fastcgi::Connection connection = begin(call);
  for (int quiet = 0; !connection.answers_within(2) && quiet < 10000; ++quiet) {
    if (answer_message()) quiet = 0;
  }
  EXPECT_TRUE(connection.answers_within(0)) << call.method << " " << call.uri << " has no end" << text;
  const fastcgi::Answer answer = connection.receive();
  EXPECT_TRUE(answer.ended) << call.method << " " << call.uri
                            << " was cut off; standard error: " << reported();
  while (answer_message()) {
  }
  tell_changes();
  if (printed().size() > printed_before)
    text += "; printed " + kind_of(printed().substr(printed_before), call.uri);
  if (!answer.errors.empty()) text += "; error " + answer.errors;
  if (!answer.out.empty()) text += "; " + kind_of(answer.out, call.uri);
  return text.empty() ? "nothing" : text.substr(2);
}

void ServiceTest::expect_effects(const std::string& table) {
  Call call;
  for (const TableRow& row : rows_of(table)) {
    std::smatch request;
    const bool named = std::regex_match(row.subject, request, std::regex(R"(([A-Za-z]+) (\S+) *([^]*))"));
    if (named) call = {.method = request[1], .uri = request[2]};
    call.body = xml(named ? request.str(3) : row.subject);
    std::vector<int> replies;
    std::istringstream numbers(row.replies);
    for (int reply = 0; numbers >> reply;)
      replies.push_back(reply);
    restore_settings();
    run_sql(row.before);
    EXPECT_EQ(effect(call, replies), row.expected) << call.method << " " << call.uri.substr(0, 300) << "\n"
                                                   << call.body.substr(0, 3000) << "\nafter " << row.before;
  }
}

void ServiceTest::expect_documents(const std::string& table) {
  for (const TableRow& row : rows_of(table)) {
    restore_settings();
    run_sql(row.before);
    SCOPED_TRACE("after " + row.before);
    const bool event = row.subject.starts_with("/PSIA/Custom/Event");
    const bool is_status = row.expected.starts_with("status");
    expect_shown(row.subject, is_status ? row.expected : (event ? kBareXml : kXml) + xml(row.expected));
  }
}

void ServiceTest::expect_shown(const std::string& uri, const std::string& body) {
  const std::size_t printed_before = printed().size();
  const std::string answer = get(uri);
  const bool is_status = body.starts_with("status");
  const bool event = uri.starts_with("/PSIA/Custom/Event") && !is_status;
  EXPECT_EQ(event ? answer : "", "") << uri;
  EXPECT_TRUE(same(event ? printed().substr(printed_before) : answer,
                   is_status ? status(body.back() - '0', uri) : document(body, event ? kBareType : kXmlType)))
      << uri;
}

void ServiceTest::restore_settings() {
  sqlite3* from = nullptr;
  sqlite3* to = nullptr;
  EXPECT_EQ(sqlite3_open(camera::kDefaultsDatabase, &from), SQLITE_OK);
  EXPECT_EQ(sqlite3_open(camera::kDatabase, &to), SQLITE_OK);
  sqlite3_busy_timeout(to, 5000);
  sqlite3_backup* const copy = sqlite3_backup_init(to, "main", from, "main");
  EXPECT_EQ(sqlite3_backup_step(copy, -1), SQLITE_DONE);
  sqlite3_backup_finish(copy);
  sqlite3_close(to);
  sqlite3_close(from);
}

camera::Message ServiceTest::expect_message() {
  const std::optional<camera::Message> message = camera::receive_message(std::chrono::seconds(10));
  EXPECT_TRUE(message.has_value()) << "the service sent no control message";
  return message.value_or(camera::Message{});
}

void ServiceTest::expect_no_message() {
  const std::optional<camera::Message> message = camera::receive_message();
  EXPECT_FALSE(message.has_value()) << "an unexpected message: " << camera::describe(*message);
}

void ServiceTest::wait_until_idle() const {
  // It sleeps, and catches and lets in SIGTERM, as it does only while it waits: 15 is bit 14 of the masks,
  // the 4 in the fourth digit from the end.
  const std::regex idle("State:\tS[^]*SigBlk:\t\\w*[0-389ab]\\w{3}\n[^]*SigCgt:\t\\w*[4-7c-f]\\w{3}\n");
  EXPECT_TRUE(eventually([&] {
    return std::regex_search(read_file("/proc/" + std::to_string(service_pid) + "/status"), idle);
  })) << "the service does not come to rest";
}

std::size_t ServiceTest::open_descriptors() const {
  wait_until_idle();
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(service_pid) + "/fd");
  return static_cast<std::size_t>(
      std::distance(std::filesystem::begin(entries), std::filesystem::end(entries)));
}

std::size_t ServiceTest::memory(const char* file, const std::string& name) const {
  wait_until_idle();
  const std::string content = read_file("/proc/" + std::to_string(service_pid) + "/" + file);
  const std::size_t at = content.find(name);
  EXPECT_NE(at, std::string::npos) << file;
  return std::stoul(content.substr(at + name.size())) * 1024;
}

}  // namespace psia_tests
