#include "tests/support/service_fixture.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace psia_tests {

namespace {

constexpr std::string_view kBase64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// A socket listening at `path`, for the service's descriptor 0.
int listen_at(const std::string& path) {
  std::filesystem::remove(path);
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(std::begin(address.sun_path), sizeof address.sun_path - 1);
  EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(listen(listener, 64), 0);
  return listener;
}

int file_for_output(const std::string& path) {
  return open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
}

}  // namespace

std::string base64(const std::string& text) {
  std::string encoded;
  for (std::size_t i = 0; i < text.size(); i += 3) {
    unsigned int bits = 0;
    for (std::size_t k = i; k < i + 3; ++k) {
      bits = bits << 8U | (k < text.size() ? static_cast<unsigned char>(text[k]) : 0U);
    }
    for (std::size_t k = 0; k < 4; ++k) {
      encoded += i + k > text.size() ? '=' : kBase64Alphabet[bits >> (18 - 6 * k) & 63U];
    }
  }
  return encoded;
}

fastcgi::Request to_request(const Call& call) {
  fastcgi::Request request{{{"REQUEST_URI", call.uri}, {"REQUEST_METHOD", call.method}}, call.body};
  if (!call.user.empty()) request.variables["HTTP_AUTHORIZATION"] = "Basic " + base64(call.user);
  if (!call.body.empty() || call.method != "GET") {
    request.variables["CONTENT_LENGTH"] = std::to_string(call.body.size());
  }
  for (const auto& [name, value] : call.variables)
    request.variables[name] = value;
  return request;
}

std::string document(const std::string& body, const std::string& content_type) {
  return "Content-Length: " + std::to_string(body.size()) + "\r\nContent-Type: " + content_type + "\r\n\r\n" +
         body;
}

std::string printed_document(const std::string& body) {
  return document(body, "application/xml");
}

std::string status(int code, const std::string& uri) {
  static const std::vector<std::string> words = {"OK",
                                                 "Device Busy",
                                                 "Device Error",
                                                 "Invalid Operation",
                                                 "Invalid XML Format",
                                                 "Invalid XML Content",
                                                 "Reboot Required"};
  return document(
      "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
      "<ResponseStatus version=\"1.0\" xmlns=\"urn:psialliance-org\">\n"
      "<requestURL>" +
      uri + "</requestURL>\n<statusCode>" + std::to_string(code) +
      "</statusCode>\n"
      "<!-- O=1-OK, 2-Device Busy, 3-Device Error, 4-Invalid Operation, 5-Invalid XML Format, 6-Invalid XML "
      "content; "
      "7-Reboot Required -->\n"
      "<statusString>" +
      words.at(static_cast<std::size_t>(code) - 1) + "</statusString>\n<id>1</id>\n</ResponseStatus>\n");
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

void ServiceTest::SetUp() {
  ASSERT_EQ(camera::reset_device(), "");
}

void ServiceTest::TearDown() {
  if (service_pid > 0) {
    EXPECT_EQ(stop_service(SIGTERM), 0) << "standard error: " << reported();
  }
}

void ServiceTest::start_service(const Start& start) {
  int input = -1;
  if (start.cgi) {
    write_file("/usr/local/orvid/stdin", start.input);
    input = open("/usr/local/orvid/stdin", O_RDONLY | O_CLOEXEC);
  } else {
    input = listen_at(socket_path_);
  }
  const int output = file_for_output(output_path_);
  const int errors = file_for_output(error_path_);
  service_pid = fork();
  ASSERT_GE(service_pid, 0);
  if (service_pid == 0) {
    dup2(input, 0);
    dup2(output, 1);
    dup2(errors, 2);
    if (start.close_output) {
      close(1);
      close(2);
    }
    for (const auto& [name, value] : start.environment)
      setenv(name.c_str(), value.c_str(), 1);
    execl(PSIA_BINARY, "psia.fcgi", nullptr);
    _exit(127);
  }
  for (const int descriptor : {input, output, errors})
    close(descriptor);
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
  fastcgi::Connection connection(socket_path_);
  EXPECT_TRUE(connection.ok()) << "the service's socket does not answer";
  connection.send(to_request(call));
  return connection;
}

std::string ServiceTest::call(const Call& call) {
  const fastcgi::Answer answer = begin(call).receive();
  EXPECT_TRUE(answer.ended) << call.method << " " << call.uri
                            << " was cut off; standard error: " << reported();
  return answer.out;
}

std::string ServiceTest::get(const std::string& uri, const std::string& user) {
  return call({.uri = uri, .user = user});
}

std::string ServiceTest::put(const std::string& uri, const std::string& body) {
  return call_with_daemon({.method = "PUT", .uri = uri, .body = body}, {});
}

std::string ServiceTest::post(const std::string& uri, const std::string& body) {
  return call_with_daemon({.method = "POST", .uri = uri, .body = body}, {});
}

std::string ServiceTest::del(const std::string& uri) {
  return call_with_daemon({.method = "DELETE", .uri = uri}, {});
}

std::string ServiceTest::call_with_daemon(const Call& call, const std::vector<int>& results) {
  const fastcgi::Connection connection = begin(call);
  messages.clear();
  for (const int result : results) {
    messages.push_back(expect_message());
    if (HasFailure()) return "";
    EXPECT_TRUE(camera::send_reply(camera::reply_to(messages.back(), result)));
  }
  const fastcgi::Answer answer = connection.receive();
  EXPECT_TRUE(answer.ended) << call.method << " " << call.uri
                            << " was cut off; standard error: " << reported();
  expect_no_message();
  return answer.out;
}

std::string ServiceTest::put_with_daemon(const std::string& uri, const std::string& body,
                                         const std::vector<int>& results) {
  return call_with_daemon({.method = "PUT", .uri = uri, .body = body}, results);
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
  // The service lets stop signals in only while it waits: bit 14 of the masks, in the fourth digit from the
  // end, is SIGTERM, 15.
  EXPECT_TRUE(eventually([this] {
    const std::string state = read_file("/proc/" + std::to_string(service_pid) + "/status");
    const auto has_sigterm = [&state](const char* mask) {
      const std::size_t at = state.find(mask);
      return at != std::string::npos && (std::stoull(state.substr(at + 8, 16), nullptr, 16) & 1U << 14U) != 0;
    };
    return has_sigterm("SigCgt:\t") && !has_sigterm("SigBlk:\t") &&
           state.find("State:\tS") != std::string::npos;
  })) << "the service does not come to rest";
}

std::size_t ServiceTest::open_descriptors() const {
  wait_until_idle();
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(service_pid) + "/fd");
  return static_cast<std::size_t>(
      std::distance(std::filesystem::begin(entries), std::filesystem::end(entries)));
}

std::size_t ServiceTest::resident_bytes() const {
  wait_until_idle();
  std::ifstream statistics("/proc/" + std::to_string(service_pid) + "/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  statistics >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace psia_tests
