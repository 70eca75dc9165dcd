// The user accounts: all seven operations, and that nobody below the administrator gets anywhere with them.
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

using Names = std::vector<std::string>;
using Texts = std::vector<std::pair<std::string, std::string>>;

const std::string kUsers = "/PSIA/Security/AAA/users";
constexpr const char* kAll = "select UserID, Password, Level from User";
constexpr const char* kAdded = "select UserID, Password, Level from User where rowid>5";
const std::string kFactory = "admin|admin|0;operator|operator|1;viewer|viewer|2;guest|guest|3;anonymous||3";

std::string one(const std::string& user) {
  return kUsers + "/" + user;
}
std::string element(const std::string& name, const std::string& content) {
  return "<" + name + ">" + content + "</" + name + ">";
}
std::string pair(const std::string& name, const std::string& password) {
  return element("userName", name) + element("password", password);
}

/// What stands in a user's element, and its end.
std::string members(const std::string& name) {
  return "<id>" + name + "</id><userName>" + name + "</userName></User>";
}
std::string user_document(const std::string& name) {
  return document(
      "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n<User version=\"1.0\" xmlns=\"urn:psialliance-org\">" +
      members(name));
}
std::string list_document(const Names& names) {
  std::string users;
  for (const std::string& name : names)
    users += "<User version=\"1.0\">" + members(name);
  return document(
      "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n<UserList version=\"1.0\" xmlns=\"urn:psialliance-org\">" +
      users + "</UserList>");
}

/// The elements that a change sends, its whole answer, and what is stored afterwards.
struct Change {
  std::string elements, answer, stored;
};
const std::string kDone = status(1, kUsers);
const std::string kRefused = status(3, kUsers);
const std::string kFailed = kRefused + kDone;  // both documents in one answer

class UsersTest : public RunningServiceTest {
 protected:
  static void refuse(const std::string& change) {
    run_sql("create trigger refuse before " + change + " begin select raise(abort, 'no'); end");
  }
};

TEST_F(UsersTest, UsersAreReadByNameOrByShortNumber) {
  const std::string long_name(300, 'n');
  run_sql("insert into User values ('bob', 'p', 2), ('1000', 'p', 2), ('" + long_name +
          "', 'p', 2), ('<b>%s%%%%', 'p', 2)");
  EXPECT_EQ(get(kUsers), list_document({"admin", "operator", "viewer", "guest", "anonymous", "bob", "1000",
                                        long_name, "<b>%s%"}));
  // Behind each name shown, or "" for a device error, the URLs' ends. Any number from 1 on, of up to three
  // characters, gives the first account that is not permanent.
  for (const auto& [name, ends] : std::vector<std::pair<std::string, Names>>{
           {"operator", {"1", "2", "999", "+7", "1ab", "operator"}},
           {"", {"0", "-1", "bob", "/", "%31", "Admin", "0001", "admin?x=1", "x' or '1'='1"}},
           {"admin", {"admin"}},
           {"anonymous", {"anonymous"}},
           {"1000", {"1000"}},
           {long_name, {long_name}}}) {
    for (const std::string& end : ends)
      EXPECT_EQ(get(one(end)), name.empty() ? status(3, one(end)) : user_document(name)) << end;
  }
  run_sql("delete from User where UserID!='admin' and UserID!='anonymous'");
  EXPECT_EQ(get(one("1")), status(3, one("1")));
}

TEST_F(UsersTest, OnePasswordIsChanged) {
  const std::string long_password(32, 'p');
  for (const auto& [children, stored] :
       Texts{{"<userName>admin</userName><PASSWORD>a</PASSWORD><level>0</level><passWord>b</passWord>", "b"},
             {element("password", long_password), long_password.substr(1)},
             {element("password", "%s%%&lt;\"\xC3\xA4"), "%s%%<\"\xC3\xA4"},
             {"<id>1</id>", ""},
             {"", ""}}) {
    EXPECT_EQ(put(one("viewer"), element("user", children)), status(1, one("viewer"))) << children;
    EXPECT_EQ(rows(kAll),
              "admin|admin|0;operator|operator|1;viewer|" + stored + "|2;guest|guest|3;anonymous||3");
  }
  const std::string body = element("User", element("password", "viewer"));
  EXPECT_EQ(put(one("viewer"), body), status(1, one("viewer")));
  for (const char* nobody : {"nobody", "Viewer", "1", "admin%"})
    EXPECT_EQ(put(one(nobody), body), status(1, one(nobody))) << nobody;
  for (const std::string& wrong :
       {std::string("no XML"), element("UserList", body), element("User", element("password", "a'b"))})
    EXPECT_EQ(put(one("viewer"), wrong), status(3, one("viewer"))) << wrong;
  refuse("update on User");
  EXPECT_EQ(put(one("viewer"), body), status(3, one("viewer")));
  EXPECT_EQ(rows(kAll), kFactory);
}

TEST_F(UsersTest, PermanentAccountsGetNoAnswer) {
  for (const char* name : {"anonymous", "Anonymous"}) {
    EXPECT_EQ(put(one(name), element("User", element("password", "new"))), "") << name;
    EXPECT_EQ(put(one(name), ""), status(3, one(name))) << name;  // the body is looked at first
    EXPECT_EQ(del(one(name)), "") << name;
  }
  EXPECT_EQ(del(one("ADMIN")), "");
  EXPECT_EQ(del(one("admin?")), status(1, one("admin?")));
  EXPECT_EQ(rows(kAll), kFactory);
}

TEST_F(UsersTest, UsersAreDeletedByName) {
  // A deletion goes by the whole name, a change of the password by the first 31 characters.
  const std::string name31(31, 'n');
  run_sql("insert into User values ('" + name31 + "', 'p', 2), ('" + name31 + "n', 'p', 2)");
  EXPECT_EQ(put(one(name31 + "n"), "<User><password>q</password></User>"), status(1, one(name31 + "n")));
  EXPECT_EQ(rows(kAdded), name31 + "|q|2;" + name31 + "n|p|2");
  EXPECT_EQ(del(one(name31 + "n")), status(1, one(name31 + "n")));
  EXPECT_EQ(rows(kAdded), name31 + "|q|2");
  for (const char* nobody : {"1", "nobody", "Viewer", "%"})
    EXPECT_EQ(del(one(nobody)), status(1, one(nobody))) << nobody;
  EXPECT_EQ(del(one("x' or '1'='1")), status(3, one("x' or '1'='1")));
  EXPECT_EQ(rows(kAdded), name31 + "|q|2");
  refuse("delete on User");
  EXPECT_EQ(del(kUsers), status(3, kUsers));
  run_sql("drop trigger refuse");
  EXPECT_EQ(del(kUsers), status(1, kUsers));
  EXPECT_EQ(rows(kAll), "admin|admin|0;anonymous||3");
}

TEST_F(UsersTest, UsersAreAddedPairByPairUpToTheFirstThatFails) {
  const std::string a31(31, 'a');
  const std::string b31(31, 'b');
  refuse("insert on User when new.UserID='evil'");
  for (const auto& [elements, answer, stored] : std::vector<Change>{
           {pair("new", "1") + pair("New", "2") + pair("x", "3"), kDone, "new|1|2;New|2|2;x|3|2"},
           {"<id>9</id><USERNAME>new</USERNAME><level>0</level><x/><Password>1</Password>", kDone, "new|1|2"},
           {element("password", "early") + element("userName", "new"), kDone, ""},
           {element("password", "early") + pair("new", "late"), kDone, "new|late|2"},
           {pair("new", "1") + element("password", "2"), kDone, "new|1|2"},  // a completed pair is forgotten
           {element("userName", "lost") + pair("new", "1"), kDone, "new|1|2"},
           {pair("new", "") + element("password", "2"), kDone, "new|2|2"},
           {pair(a31 + "x", b31 + "y") + pair("new", "1"), kDone, a31 + "|" + b31 + "|2;new|1|2"},
           {pair("&lt;%s\xC3\xBC", "a&amp;b%%"), kDone, "<%s\xC3\xBC|a&b%%|2"},
           {pair("new", "1") + pair("guest", "x") + pair("more", "2"), kRefused, "new|1|2"},
           {pair("new", "1") + pair("new", "2"), kRefused, "new|1|2"},
           {pair("new", "1") + pair("o'hara", "x") + pair("more", "2"), kRefused, "new|1|2"},
           {pair("new", "1") + pair("next", "p'q") + pair("more", "2"), kFailed, "new|1|2"},
           {pair("new", "1") + pair("evil", "2") + pair("more", "3"), kFailed, "new|1|2"}}) {
    EXPECT_EQ(post(kUsers, element("uSER", elements)), answer) << elements;
    EXPECT_EQ(rows(kAdded), stored) << elements;
    run_sql("delete from User where rowid>5");
  }
  EXPECT_EQ(post(kUsers, element("UserList", element("User", pair("new", "1")))), kRefused);
  EXPECT_EQ(rows(kAdded), "");
}

TEST_F(UsersTest, PasswordsAreChangedByAList) {
  const auto user = [](const std::string& children) { return element("User", children); };
  const std::string viewer = pair("viewer", "x");
  refuse("update on User when old.UserID='operator' and new.Password!='1'");
  // The passwords afterwards are those of admin, operator, viewer, guest and anonymous.
  for (const auto& [elements, answer, stored] : std::vector<Change>{
           {user(pair("admin", "admin")) + user(pair("guest", "g")), kDone, "admin|1|2|g|4"},
           {"<USER><id>1</id><USERNAME>viewer</USERNAME><PASSWORD>v</PASSWORD></USER>", kDone,
            "admin|1|v|3|4"},
           {user(viewer + pair("guest", "g") + element("password", "h")), kDone, "admin|1|x|h|4"},
           {user(element("password", "x") + element("userName", "viewer")), kDone, "admin|1|2|3|4"},
           {user(pair("viewer", "")) + user(pair("", "x")) + user(""), kDone, "admin|1|2|3|4"},
           // A User without a name is the one before it.
           {user(viewer) + user(element("password", "b")), kDone, "admin|1|b|3|4"},
           {user(pair("anonymous", "x")) + user(pair("guest", "g")), kDone, "admin|1|2|g|4"},
           {viewer + element("Users", viewer) + user(user(viewer)), kDone, "admin|1|2|3|4"},
           {user(pair("viewer", "a'b") + pair("guest", "g")) + user(viewer), kFailed, "admin|1|x|3|4"},
           {user(pair("o'hara", "x")) + user(pair("operator", "o")), kRefused + kFailed, "admin|1|2|3|4"}}) {
    run_sql("update User set Password=rowid-1 where UserID!='admin'");
    EXPECT_EQ(put(kUsers, element("userlist", elements)), answer) << elements;
    EXPECT_EQ(rows("select group_concat(Password, '|') from User"), stored) << elements;
  }
  EXPECT_EQ(put(kUsers, user(viewer)), kRefused);
}

TEST_F(UsersTest, HundredsOfAccountsAreAddedAndListed) {
  std::string pairs;
  for (int i = 0; i < 300; ++i)
    pairs += pair("user" + std::to_string(i), "p");
  EXPECT_EQ(post(kUsers, element("User", pairs)), kDone);
  EXPECT_EQ(rows("select count(*) from User where UserID like 'user%' and Password='p' and Level=2"), "300");
  const std::string list = get(kUsers);
  EXPECT_EQ(list, document(body_of(list)));
  EXPECT_NE(list.find("<userName>user299</userName></User></UserList>"), std::string::npos);
}

TEST_F(UsersTest, NobodyBelowTheAdministratorChangesAnAccountOrSeesAPassword) {
  run_sql("update User set Password='secret-' || UserID");
  const std::string before = rows(kAll);
  const std::string body = element("User", pair("viewer", "x") + "<level>0</level>");
  for (const std::string name : {"operator", "viewer", "guest", "anonymous"}) {
    const std::string user = name + ":secret-" + name;
    for (const char* end :
         {"", "/", "//ADMIN", "/viewer?user=admin&level=0", "/1", "/%61dmin", "/../users/admin", "/admin"}) {
      const std::string uri = kUsers + end;
      for (const char* method : {"PUT", "POST", "DELETE", "delete", "PATCH", ""}) {
        EXPECT_EQ(call({.method = method, .uri = uri, .body = body, .user = user}), status(4, uri))
            << method << " by " << name;
      }
      EXPECT_EQ(get(uri, user).find("secret"), std::string::npos) << uri << " by " << name;
    }
  }
  EXPECT_EQ(rows(kAll), before);
}

}  // namespace
}  // namespace psia_tests
