// The real service binary behind a FastCGI socket in a fresh simulated camera, seen from all sides: what a
// client receives, what the daemons find in the database and on the queues, what the process prints.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "simulator/device.h"
#include "simulator/message.h"
#include "tests/support/fastcgi_client.h"

namespace psia_tests {

/// What a test sends; what it leaves out is what a client would most likely send.
struct Call {
  std::string method = "GET";
  std::string uri;
  std::string body = {};
  std::string user = "admin:admin";  ///< "" sends no credentials
  std::map<std::string, std::string> variables =
      {};  ///< further variables; they replace those made from the above
};

/// `text` in base 64.
[[nodiscard]] std::string base64(const std::string& text);

/// The request a web server would make of `call`.
[[nodiscard]] fastcgi::Request to_request(const Call& call);

/// The bytes of a document's whole answer, `content_type` being the header line without its end.
[[nodiscard]] std::string document(const std::string& body,
                                   const std::string& content_type = "application/xml; charset=\"UTF-8\"");
/// The bytes of an Event document on the process's standard output.
[[nodiscard]] std::string printed_document(const std::string& body);
/// The bytes of a ResponseStatus answer to a request for `uri`.
[[nodiscard]] std::string status(int code, const std::string& uri);
/// The bytes of the answer to a refused request.
[[nodiscard]] std::string unauthorized();
/// The bytes behind the first empty line.
[[nodiscard]] std::string body_of(const std::string& answer);

/// The rows a select gives, values joined by "|", rows by ";".
[[nodiscard]] std::string rows(const std::string& select, const char* database = camera::kDatabase);
/// Changes the database as a daemon would; a failure fails the test.
void run_sql(const std::string& statement, const char* database = camera::kDatabase);

[[nodiscard]] std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& content);

class ServiceTest : public ::testing::Test {
 protected:
  /// How the service is started.
  struct Start {
    std::map<std::string, std::string> environment = {};
    bool close_output = false;  ///< descriptors 1 and 2 closed, as web servers do it
    bool cgi = false;           ///< a plain CGI program: `environment` holds the request, `input` the body
    std::string input = {};
  };

  void SetUp() override;
  void TearDown() override;

  void start_service(const Start& start);
  void start_service() { start_service(Start{}); }
  /// Ends the service with `signal` and waits for its end; returns the exit status, or 128 plus the signal
  /// that killed it. A sanitizer's findings and leaks show here too.
  int stop_service(int signal);
  /// Waits for the end of a service that ends by itself.
  int wait_for_exit();

  /// One request without a daemon: the control message it may send stays unanswered.
  std::string call(const Call& call);
  std::string get(const std::string& uri, const std::string& user = "admin:admin");
  /// A change by the administrator for which no control message is expected.
  std::string put(const std::string& uri, const std::string& body);
  std::string post(const std::string& uri, const std::string& body);
  std::string del(const std::string& uri);

  /// Sends a request and leaves the answer to be received.
  fastcgi::Connection begin(const Call& call) const;
  /// A request during which a daemon receives as many messages as there are results and answers each; the
  /// messages are kept in `messages`. Any further message fails the test.
  std::string call_with_daemon(const Call& call, const std::vector<int>& results = {0});
  std::string put_with_daemon(const std::string& uri, const std::string& body,
                              const std::vector<int>& results = {0});

  /// The next message on queue 1, waited for; none within 10 s fails the test.
  camera::Message expect_message();
  void expect_no_message();

  /// Waits until `condition` holds; false after 10 s.
  template <typename Condition>
  static bool eventually(const Condition& condition) {
    for (int i = 0; i < 2000; ++i) {
      if (condition()) return true;
      usleep(5000);
    }
    return false;
  }
  /// Waits until the service has done with the last request, its connection closed, or waits for a queue.
  void wait_until_idle() const;

  /// What the service has printed so far on its standard output and its standard error.
  [[nodiscard]] std::string printed() const { return read_file(output_path_); }
  [[nodiscard]] std::string reported() const { return read_file(error_path_); }
  /// Open descriptors and resident bytes of the idle service.
  [[nodiscard]] std::size_t open_descriptors() const;
  [[nodiscard]] std::size_t resident_bytes() const;

  std::vector<camera::Message> messages;
  pid_t service_pid = -1;

 private:
  std::string socket_path_ = "/usr/local/orvid/psia.sock";
  std::string output_path_ = "/usr/local/orvid/stdout";
  std::string error_path_ = "/usr/local/orvid/stderr";
};

/// A service that was started in the camera's factory state and has answered once.
class RunningServiceTest : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    start_service();
    ASSERT_NE(get("/PSIA"), "");
  }
};

}  // namespace psia_tests
