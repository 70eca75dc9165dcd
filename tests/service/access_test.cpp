// Who is let in, byte for byte.
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

constexpr const char* kUri = "/PSIA/System/Audio/channels/1";

class AccessTest : public RunningServiceTest {
 protected:
  std::string with_header(const std::string& authorization) {
    return call({.uri = "/PSIA/x", .user = "", .variables = {{"HTTP_AUTHORIZATION", authorization}}});
  }
};

TEST_F(AccessTest, WrongCredentialsGetThe401Answer) {
  for (const char* user :
       {"", "admin:wrong", "admin:", "admin:ADMIN", "admin", "nobody:admin", ":", ":admin", "admin:admin2",
        "admin:admi", "admin:admix", "admin:bdmin", "' or '1'='1:admin", "admin'--:admin", "%s%s%n:admin"}) {
    EXPECT_EQ(get("/PSIA/index", user), unauthorized()) << user;
  }
  EXPECT_EQ(with_header(""), unauthorized());
  EXPECT_EQ(with_header("Basic " + std::string(100000, 'A')), unauthorized());
  // No handler runs.
  EXPECT_EQ(call({.method = "PUT", .uri = kUri, .body = "<AudioChannel/>", .user = "admin:wrong"}),
            unauthorized());
  EXPECT_EQ(rows("select Enable from Audio"), "1");
  expect_no_message();
}

TEST_F(AccessTest, RightCredentialsAreTakenInAllTheirOddForms) {
  EXPECT_EQ(with_header("123456YWRt\taW46YWRt:aW4"), status(4, "/PSIA/x"));  // odd scheme, characters, end
  for (const char* user : {"admin-anything:admin:admin", "anonymous:", "anonymous"})
    EXPECT_EQ(get("/PSIA/x", user), status(4, "/PSIA/x")) << user;
}

TEST_F(AccessTest, LongNamesAndPasswordsCountUpTo31Characters) {
  const std::string name(31, 'n');
  const std::string password(31, 'p');
  run_sql("insert into User values ('" + name + "', '" + password + "', 2)");
  EXPECT_EQ(get("/PSIA/x", name + "more:" + password + "more"), status(4, "/PSIA/x"));
  run_sql("update User set Password='" + password + "q' where UserID='" + name + "'");
  EXPECT_EQ(get("/PSIA/x", name + ":" + password + "q"), unauthorized());
}

TEST_F(AccessTest, StoredLevelsDecide) {
  const auto read_with_level = [this](const std::string& level) {
    run_sql("update User set Level=" + level + " where UserID='guest'");
    return get(kUri, "guest:guest");
  };
  const std::string document = get(kUri);
  EXPECT_EQ(read_with_level("3"), document);
  EXPECT_EQ(read_with_level("4"), status(4, kUri));
  EXPECT_EQ(read_with_level("-1"), "");           // dropped without a byte
  EXPECT_EQ(read_with_level("'abc'"), document);  // reads as 0
  EXPECT_EQ(read_with_level("null"), unauthorized());
  run_sql("update User set Password=null, Level=3 where UserID='guest'");
  EXPECT_EQ(get(kUri, "guest:guest"), unauthorized());
  EXPECT_EQ(get(kUri, "guest:"), document);  // no password stored is an empty one
}

TEST_F(AccessTest, RequestsWithoutUriOrMethodAreDropped) {
  for (const char* missing : {"REQUEST_URI", "REQUEST_METHOD"}) {
    fastcgi::Request request = to_request({.uri = "/PSIA/index"});
    request.variables.erase(missing);
    const fastcgi::Connection connection("/usr/local/orvid/psia.sock");
    connection.send(request);
    const fastcgi::Answer answer = connection.receive();
    EXPECT_TRUE(answer.ended);
    EXPECT_EQ(answer.out, "");
  }
  EXPECT_EQ(get(""), status(4, ""));
}

}  // namespace
}  // namespace psia_tests
