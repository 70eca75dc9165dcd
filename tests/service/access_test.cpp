// Who is let in, byte for byte; and request bodies as they come over the wire: short, empty, cut, too large.
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

constexpr const char* kUri = "/PSIA/System/Audio/channels/1";
const std::string kBody = "<AudioChannel><enabled>false</enabled></AudioChannel>";
const std::string kSwitchedOff = "Audio Enable=0; message 3; status 1";

class AccessTest : public RunningServiceTest {
 protected:
  std::string with_header(const std::string& authorization) {
    return call({.uri = "/PSIA/x", .user = "", .variables = {{"HTTP_AUTHORIZATION", authorization}}});
  }
  static Call with_length(const std::string& body, const std::optional<std::string>& length) {
    return {.method = "PUT", .uri = kUri, .body = body, .variables = {{"CONTENT_LENGTH", length}}};
  }
};

TEST_F(AccessTest, WrongCredentialsGetThe401Answer) {
  for (const char* user :
       {"", "admin:wrong", "admin:", "admin:ADMIN", "admin", "nobody:admin", ":", ":admin", "admin:admin2",
        "admin:admi", "admin:admix", "admin:bdmin", "' or '1'='1:admin", "admin'--:admin", "%s%s%n:admin"}) {
    EXPECT_TRUE(same(get("/PSIA/index", user), unauthorized())) << user;
    // No handler runs.
    EXPECT_TRUE(same(call({.method = "PUT", .uri = kUri, .body = kBody, .user = user}), unauthorized()))
        << user;
  }
  EXPECT_EQ(with_header(""), unauthorized());
  EXPECT_EQ(with_header("Basic " + std::string(100000, 'A')), unauthorized());
  EXPECT_EQ(rows("select Enable from Audio"), "1");
  expect_no_message();
}

TEST_F(AccessTest, RightCredentialsAreTakenInAllTheirOddForms) {
  EXPECT_EQ(with_header("123456YWRt\taW46YWRt:aW4"), status(4, "/PSIA/x"));  // odd scheme, characters, end
  for (const char* user : {"admin-anything:admin:admin", "anonymous:", "anonymous"})
    EXPECT_EQ(get("/PSIA/x", user), status(4, "/PSIA/x")) << user;
  // Of names and passwords 31 characters count.
  const std::string name(31, 'n');
  const std::string password(31, 'p');
  run_sql("insert into User values ('" + name + "', '" + password + "', 2)");
  EXPECT_EQ(get("/PSIA/x", name + "more:" + password + "more"), status(4, "/PSIA/x"));
  run_sql("update User set Password='" + password + "q' where UserID='" + name + "'");
  EXPECT_EQ(get("/PSIA/x", name + ":" + password + "q"), unauthorized());
}

TEST_F(AccessTest, StoredLevelsDecide) {
  const std::string document = get(kUri);
  for (const auto& [change, answer] : Pairs{{"Level=3", document},
                                            {"Level=4", status(4, kUri)},
                                            {"Level=-1", ""},           // dropped without a byte
                                            {"Level='abc'", document},  // reads as 0
                                            {"Level=null", unauthorized()}}) {
    run_sql("update User set " + change + " where UserID='guest'");
    EXPECT_EQ(get(kUri, "guest:guest"), answer) << change;
  }
  run_sql("update User set Password=null, Level=3 where UserID='guest'");
  EXPECT_EQ(get(kUri, "guest:guest"), unauthorized());
  EXPECT_EQ(get(kUri, "guest:"), document);  // no password stored is an empty one
}

TEST_F(AccessTest, RequestsWithoutUriOrMethodAreDropped) {
  for (const char* missing : {"REQUEST_URI", "REQUEST_METHOD"})
    EXPECT_EQ(call({.uri = "/PSIA/index", .variables = {{missing, std::nullopt}}}), "") << missing;
}

TEST_F(AccessTest, BodiesOfWrongLengthsFailTheRequest) {
  for (const char* length : {"", "0", "-1", "abc", "-99999999999", "1048577", "4294967349", "54"})
    EXPECT_EQ(effect(with_length(kBody, length)), "status 3") << length;
  EXPECT_EQ(effect(with_length(kBody, std::nullopt)), "status 3");
  EXPECT_EQ(effect(with_length(kBody + "<<garbage", " 53 bytes")), kSwitchedOff);
}

TEST_F(AccessTest, BodiesOfUpTo1MiBAreReadToTheirFirstZeroByte) {
  std::string largest = kBody;
  largest.insert(14, std::string(1048576 - kBody.size(), ' '));
  for (const auto& [body, expected] : Pairs{{largest, kSwitchedOff},
                                            {largest + " ", "status 3"},
                                            {kBody + std::string("\0trailing", 9), kSwitchedOff},
                                            {std::string("\0", 1) + kBody, "status 3"},
                                            {repeated(100000, "<a>"), "status 3"}}) {
    restore_settings();
    EXPECT_EQ(effect({.method = "PUT", .uri = kUri, .body = body}), expected) << body.size();
  }
  EXPECT_EQ(reported(), "");  // no parser's complaints
}

TEST_F(AccessTest, AConnectionCutInTheMiddleLeavesTheServiceRunning) {
  {
    Call cut = with_length(kBody, "5000");
    cut.finished = false;
    const fastcgi::Connection connection = begin(cut);
    const fastcgi::Connection silent(kSocket);
  }
  EXPECT_EQ(get("/PSIA/x"), status(4, "/PSIA/x"));
  EXPECT_EQ(rows("select Enable from Audio"), "1");
  (void)begin({.uri = "/PSIA/indexr"});  // goes away without its answer
  EXPECT_EQ(get("/PSIA/x"), status(4, "/PSIA/x"));
}

}  // namespace
}  // namespace psia_tests
