// The real service binary behind a FastCGI socket in a fresh simulated camera, seen from all sides: what a
// client receives, what the daemons find in the database and on the queues, what the process prints.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulator/device.h"
#include "simulator/fastcgi_client.h"
#include "simulator/message.h"

namespace service_tests {

namespace fastcgi = camera::fastcgi;
/// The line of a test that a failure names: `Place place = here()` as the last argument of a helper.
struct Place {
  const char* file;
  int line;
};
constexpr Place here(const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  return {file, line};
}
using Lines = std::vector<std::string>;

struct Request {
  std::string method, uri, body = {};
  std::string user = "admin:admin";  ///< "" sends no credentials
  /// Added to or in place of those that a web server makes; nothing takes one away.
  std::map<std::string, std::optional<std::string>> variables = {};
  std::vector<std::optional<int>> replies = {};  ///< see expect_effects
  bool finished = true;                          ///< false: more of the body follows
  bool keep = false;                             ///< the connection stays open for a further request
};

/// The request as a web server sends it.
[[nodiscard]] fastcgi::Request to_fastcgi(const Request& request);

/// A document that a test shows on several lines, without the line breaks and the indentation.
[[nodiscard]] std::string joined(const std::string& text);
/// `text` with each `from` replaced.
[[nodiscard]] std::string replaced(std::string text, const std::string& from, const std::string& to);

inline const std::string kXml = R"(<?xml version="1.0" encoding="UTF-8" ?>)";
/// The bytes of the answer with this body.
[[nodiscard]] std::string document(const std::string& body,
                                   const std::string& content_type = R"(application/xml; charset="UTF-8")");
/// The bytes of a ResponseStatus answer to a request for `uri`.
[[nodiscard]] std::string status(int code, const std::string& uri);
/// The bytes of the answer to wrong credentials.
[[nodiscard]] std::string unauthorized();
/// The effect of a request whose document goes to the standard output, as those of the Event resources do.
[[nodiscard]] std::string printed(const std::string& body);

/// Changes the database as a daemon would; a failure ends the test.
void execute(const std::string& sql, const char* database = camera::kDatabase);
/// The values that a select gives, joined by "|", rows by ";".
[[nodiscard]] std::string rows(const std::string& select, const char* database = camera::kDatabase);
[[nodiscard]] std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& content);

class CameraTest : public testing::Test {
 protected:
  struct Start {
    std::map<std::string, std::string> environment = {};
    bool close_output = false;  ///< descriptors 1 and 2 closed, as some web servers do it
    bool cgi = false;           ///< a plain CGI program: `environment` holds the request, without a body
  };

  void SetUp() override { reset(); }
  void TearDown() override { end_service(); }

  /// Puts the camera into its factory state; a service that runs goes on.
  static void reset();

  /// Starts the built service, or what the environment variable PSIA_BINARY names.
  void start_service(const Start& start);
  /// Ends the service by `signal`. The exit status, or 128 plus the signal that ended it; sanitizers'
  /// findings show here, too.
  int stop_service(int signal);
  int wait_for_exit();
  void end_service();

  /// Sends a request and leaves the answer to be received.
  [[nodiscard]] static fastcgi::Connection begin(const Request& request);
  /// The answer to a request during which no daemon works.
  [[nodiscard]] static std::string call(const Request& request);

  /// All that follows from a request, in this order: what is stored before each message ("Event.Week = 2"),
  /// the message ("message 2 encoder: master = 1"), what is stored at the end, what is printed, what is
  /// reported, the answer. The daemons answer the messages with request.replies, then with 0 (done); 1 is
  /// busy, 2 failed, nullopt no answer.
  [[nodiscard]] Lines effects(const Request& request) const;
  void expect_effects(const Request& request, const Lines& expected, Place place = here()) const;

  [[nodiscard]] static std::string printed_so_far() { return read_file(kOutput); }
  [[nodiscard]] static std::string reported() { return read_file(kErrors); }

  pid_t service_pid = -1;

 private:
  static constexpr const char* kSocket = "/usr/local/orvid/psia.sock";
  static constexpr const char* kOutput = "/usr/local/orvid/stdout";
  static constexpr const char* kErrors = "/usr/local/orvid/stderr";
};

/// A camera with the service running.
class ServiceTest : public CameraTest {
 protected:
  void SetUp() override {
    CameraTest::SetUp();
    start_service({});
  }
};

}  // namespace service_tests
