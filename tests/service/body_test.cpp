// Request bodies as they come over the wire: short, empty, cut, too large, with no length or a wrong one.
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

constexpr const char* kUri = "/PSIA/System/Audio/channels/1";
const std::string kBody = "<AudioChannel><enabled>false</enabled></AudioChannel>";

class BodyTest : public RunningServiceTest {
 protected:
  static Call with_length(const std::string& body, const std::string& length) {
    return {.method = "PUT", .uri = kUri, .body = body, .variables = {{"CONTENT_LENGTH", length}}};
  }
};

TEST_F(BodyTest, LengthsThatCannotBeReadFailTheRequest) {
  for (const std::string& length : std::vector<std::string>{"", "0", "-1", "abc", "-99999999999", "1048577",
                                                            "4294967349", std::to_string(kBody.size() + 1)}) {
    EXPECT_EQ(call(with_length(kBody, length)), status(3, kUri)) << length;
  }
  fastcgi::Request no_length = to_request({.method = "PUT", .uri = kUri, .body = kBody});
  no_length.variables.erase("CONTENT_LENGTH");
  const fastcgi::Connection connection("/usr/local/orvid/psia.sock");
  connection.send(no_length);
  EXPECT_EQ(connection.receive().out, status(3, kUri));
  EXPECT_EQ(rows("select Enable from Audio"), "1");
  expect_no_message();
}

TEST_F(BodyTest, OnlyTheAnnouncedBytesCount) {
  EXPECT_EQ(call_with_daemon(with_length(kBody + "<<garbage", " 53 bytes")), status(1, kUri));
  EXPECT_EQ(rows("select Enable from Audio"), "0");
  // A zero byte ends the text.
  EXPECT_EQ(put_with_daemon(kUri, kBody + std::string("\0trailing", 9)), status(1, kUri));
  EXPECT_EQ(put(kUri, std::string("\0", 1) + kBody), status(3, kUri));
}

TEST_F(BodyTest, TheLargestBodyIsOneMebibyte) {
  std::string body = kBody;
  body.insert(14, std::string(1048576 - body.size(), ' '));
  EXPECT_EQ(put_with_daemon(kUri, body), status(1, kUri));
  EXPECT_EQ(put(kUri, body + " "), status(3, kUri));
}

TEST_F(BodyTest, AConnectionCutInTheMiddleLeavesTheServiceRunning) {
  {
    const fastcgi::Connection connection("/usr/local/orvid/psia.sock");
    connection.send_unfinished(to_request(with_length(kBody, "5000")));
    const fastcgi::Connection silent("/usr/local/orvid/psia.sock");
  }
  EXPECT_EQ(get("/PSIA/x"), status(4, "/PSIA/x"));
  EXPECT_EQ(rows("select Enable from Audio"), "1");
  (void)begin({.uri = "/PSIA/indexr"});  // goes away without its answer
  EXPECT_EQ(get("/PSIA/x"), status(4, "/PSIA/x"));
}

TEST_F(BodyTest, HostileXmlIsRefusedAndForgotten) {
  std::string deep;
  for (int i = 0; i < 100000; ++i)
    deep += "<a>";
  for (const std::string& body :
       {deep,
        std::string("<!DOCTYPE a [<!ENTITY f SYSTEM \"/etc/passwd\">]><AudioChannel>&f;</AudioChannel>"),
        std::string("<!DOCTYPE a [<!ENTITY % p SYSTEM \"/dev/mtdblock7\"> %p;]><AudioChannel/>")}) {
    EXPECT_EQ(put(kUri, body), status(3, kUri)) << body.substr(0, 60);
  }
  EXPECT_EQ(reported(), "");
}

}  // namespace
}  // namespace psia_tests
