// The real service binary behind a FastCGI socket in a fresh simulated camera, seen from all sides: what a
// client receives, what the daemons find in the database and on the queues, what the process prints. A failed
// check ends its test at once, so that the first thing that went wrong is the only one told.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/device/device.h"
#include "simulator/device/message.h"
#include "simulator/front/fastcgi_client.h"

namespace psia_tests {

namespace fastcgi = camera::fastcgi;

/// What a test sends; what it leaves out is what a client would most likely send.
struct Call {
  std::string method = "GET";
  std::string uri;
  std::string body = {};
  std::string user = "admin:admin";  ///< "" sends no credentials
  /// Further variables; they replace those made from the above, and nothing takes one of them away.
  std::map<std::string, std::optional<std::string>> variables = {};
  bool finished = true;  ///< false: the connection stays open behind the body
  bool keep = false;     ///< see fastcgi::Request
};

/// The request a web server would make of `call`.
[[nodiscard]] fastcgi::Request to_request(const Call& call);

/// XML in brief, one way in which documents are written in all tests:
///
///     User(userName=bob password=`with blanks` <x/>)  is  <User><userName>bob</userName>...<x/></User>
///     name!(...)  name!=value      has the attributes version and xmlns
///     name'(...)  name{a="1"}=1    has the attribute version; has these attributes
///
/// Tags may be written out; a text in double quotes as a whole stays as it is.
[[nodiscard]] std::string xml(const std::string& brief);

[[nodiscard]] std::string element(const std::string& name, const std::string& content);
[[nodiscard]] std::string repeated(int count, const std::string& text);
/// `text` with each pair's first replaced by its second wherever it occurs.
using Pairs = std::vector<std::pair<std::string, std::string>>;
[[nodiscard]] std::string replaced(std::string text, const Pairs& pairs);

/// The pattern once for each row, with the row's columns, which " | " separates, for $1, $2 and so on.
[[nodiscard]] std::string for_each(const std::string& rows, const std::string& pattern);

/// The declaration of most documents; of the Event documents and some lists; of the interface documents.
inline const std::string kBareXml = R"(<?xml version="1.0" encoding="UTF-8" ?>)";
inline const std::string kXml = kBareXml + "\r\n";
inline const std::string kLineXml = kBareXml + "\n";

/// The bytes of a document's whole answer; those that are printed have the bare type.
inline const std::string kBareType = "application/xml";
inline const std::string kXmlType = kBareType + R"(; charset="UTF-8")";
[[nodiscard]] std::string document(const std::string& body, const std::string& content_type = kXmlType);
/// The bytes of a ResponseStatus answer to a request for `uri`.
[[nodiscard]] std::string status(int code, const std::string& uri);
/// The bytes of the answer to a refused request.
[[nodiscard]] std::string unauthorized();
/// The bytes behind the first empty line.
[[nodiscard]] std::string body_of(const std::string& answer);
/// `answer` with its first time text from `since` to now, `offset` seconds east of Greenwich, replaced by
/// kNow, which is as long.
inline const std::string kNow = "YYYY-MM-DDThh:mm:ss";
[[nodiscard]] std::string with_now(std::string answer, std::time_t since, int offset = 0);

/// Whether two documents are the same; if not, tells what is around the first byte that differs.
[[nodiscard]] testing::AssertionResult same(const std::string& actual, const std::string& expected);

/// The rows a select gives, values joined by "|", rows by ";".
[[nodiscard]] std::string rows(const std::string& select, const char* database = camera::kDatabase);
/// Changes the database as a daemon would; a failure fails the test.
void run_sql(const std::string& statement, const char* database = camera::kDatabase);

/// The rows of all tables by "table/number of the row"; and what is different, each change behind a "; ", as
/// ServiceTest::effect tells it.
using Settings = std::map<std::string, std::vector<std::string>>;
[[nodiscard]] Settings all_settings();
[[nodiscard]] std::string differences(const Settings& before, const Settings& after);

[[nodiscard]] std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& content);

/// The service's listening socket, standard output and standard error.
constexpr const char* kSocket = "/usr/local/orvid/psia.sock";
constexpr const char* kOutput = "/usr/local/orvid/stdout";
constexpr const char* kErrors = "/usr/local/orvid/stderr";

class ServiceTest : public ::testing::Test {
 protected:
  /// How the service is started.
  struct Start {
    std::map<std::string, std::string> environment = {};
    bool close_output = false;  ///< descriptors 1 and 2 closed, as web servers do it
    bool cgi = false;           ///< a plain CGI program: `environment` holds the request, without a body
  };

  void SetUp() override { ASSERT_EQ(camera::reset_device(), ""); }
  void TearDown() override;

  /// Starts the built service, or what the environment variable PSIA_BINARY names: another build, or a script
  /// that replaces itself by one (exec).
  void start_service(const Start& start);
  void start_service() { start_service(Start{}); }
  /// Ends the service with `signal` and waits for its end; returns the exit status, or 128 plus the signal
  /// that killed it. A sanitizer's findings and leaks show here too.
  int stop_service(int signal);
  /// Waits for the end of a service that ends by itself.
  int wait_for_exit();

  /// Sends a request and leaves the answer to be received.
  fastcgi::Connection begin(const Call& call) const;
  /// One request without a daemon, so that a control message stays unanswered; and its answer's bytes.
  fastcgi::Answer exchange(const Call& call);
  std::string call(const Call& call) { return exchange(call).out; }
  std::string get(const std::string& uri, const std::string& user = "admin:admin") {
    return call({.uri = uri, .user = user});
  }

  /// One request during which a daemon answers each control message, in words, in the order in which things
  /// came about: "Audio Enable=0; message 3; status 1". Of the database all that was changed is told (rows of
  /// a table that has several by their first column, "VideoEncoder/1 Codec=0"), added ("+User x|y|2") or
  /// removed ("-User/x"); of a message all that is not zero. Then comes what was printed, what went to the
  /// error stream, and the answer: the status codes, or the document's root element.
  std::string effect(const Call& call, const std::vector<int>& replies = {});

  /// Tables of requests. A row begins at the start of a line, which a blank continues on the next:
  ///
  ///     STATEMENT :: METHOD URI BODY <- RESULT... => EFFECT      with what is told; see effect()
  ///     STATEMENT :: URI => DOCUMENT                             with what is shown; see expect_shown()
  ///     WORD := TEXT        the word stands for the text in the rows below
  ///     always := STATEMENT is run before each
  ///
  /// Statements are run in the factory state. Method and URI, when left out, are those of the row above; the
  /// results are those of the daemon's replies. Bodies and documents are xml() in brief. {a|b} in front of
  /// the arrow makes a row of each alternative.
  void expect_effects(const std::string& table);
  void expect_documents(const std::string& table);

  /// A GET answers with the document `body`, or prints it when it is one of the Event resources; or answers
  /// with "status 4" or another.
  void expect_shown(const std::string& uri, const std::string& body);

  /// Puts the settings back into the factory state, tables and triggers included.
  static void restore_settings();

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
  [[nodiscard]] static std::string printed() { return read_file(kOutput); }
  [[nodiscard]] static std::string reported() { return read_file(kErrors); }
  /// Open descriptors of the idle service; and the bytes that a line of a file of it in /proc tells, which
  /// begins with `name`.
  [[nodiscard]] std::size_t open_descriptors() const;
  [[nodiscard]] std::size_t memory(const char* file, const std::string& name) const;

  std::vector<camera::Message> messages;  ///< of the last effect()
  pid_t service_pid = -1;

 private:
  [[nodiscard]] std::string in_words(camera::Message message) const;
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
