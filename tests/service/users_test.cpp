// The user accounts: all seven operations, and that nobody below the administrator gets anywhere with them.
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

/// Stands for texts of many characters and for the resource in the tables below.
const std::string kWords = "N31 := " + std::string(31, 'n') + "\nN300 := " + std::string(300, 'm') +
                           "\n$ := /PSIA/Security/AAA/users\n";

class UsersTest : public RunningServiceTest {};

TEST_F(UsersTest, UsersAreReadByNameOrByShortNumber) {
  // Any number from 1 on, of up to three characters, gives the first account that is not permanent.
  expect_documents(kWords + R"(
always := insert into User values ('bob', 'p', 2), ('1000', 'p', 2), ('N300', 'p', 2)
delete from User where UserID!='N300'; insert into User values ('admin', 'admin', 0), ('<b>%s%%%%', 'p', 2)
 :: $ => UserList!(User'(id=N300 userName=N300) User'(id=admin userName=admin) User'(id=<b>%s% userName=<b>%s%))
$/{1|2|999|+7|1ab|operator} => User!(id=operator userName=operator)
$/{0|-1|bob|/|%31|Admin|0001|admin?x=1|x'or'1'='1} => status 3
$/N300 => User!(id=N300 userName=N300)
$/1000 => User!(id=1000 userName=1000)
$/admin => User!(id=admin userName=admin)
delete from User where UserID!='admin' and UserID!='anonymous' :: $/1 => status 3
)");
}

TEST_F(UsersTest, TheUserOfTheUrlIsChangedAndDeletedByTheWholeName) {
  expect_effects(kWords + R"(
always := insert into User values ('N31', 'p', 2), ('N31n', 'p', 2)
PUT $/viewer User(userName=admin PASSWORD=a level=0 passWord=b) => User/viewer Password=b; status 1
User(password=N31p) => User/viewer Password=N31; status 1
"<User><password>%s%%&lt; "&#228;</password></User>" => User/viewer Password=%s%%< "ä; status 1
"<User><password>a<x>b</x>c<![CDATA[&d]]><!--e--></password></User>" => User/viewer Password=ac&d; status 1
"<User xmlns:p='u'><p:password>x</p:password></User>" => User/viewer Password=x; status 1
{User(id=1)|"<User><p:password>x</p:password></User>"} => User/viewer Password=; status 1
{UserList(User(password=new))|User(password=a'b)} => status 3
PUT $/{nobody|Viewer|1|admin%} User(password=new) => status 1
PUT $/{anonymous|Anonymous} User(password=new) => nothing
"" => status 3
PUT $/N31n User(password=new) => User/N31 Password=new; status 1
DELETE $/N31n => -User/N31n; status 1
DELETE $/x'or'1'='1 => status 3
DELETE $/{1|nobody|Viewer|%|admin?} => status 1
DELETE $/{anonymous|Anonymous|ADMIN} => nothing
DELETE $ => -User/operator; -User/viewer; -User/guest; -User/N31; -User/N31n; status 1
create trigger refuse before delete on User begin select raise(abort, 'no'); end :: DELETE $ => status 3
)");
}

TEST_F(UsersTest, UsersAreAddedPairByPairUpToTheFirstThatFails) {
  // A statement that fails in the middle gives both status documents in one answer.
  expect_effects(kWords + R"(
POST $ uSER(id=9 USERNAME=n level=0 <x/> Password=1 userName=N password=2) => +User n|1|2; +User N|2|2; status 1
User(password=early userName=lost userName=n password= password=1 password=2) => +User n|1|2; status 1
User(userName=N31x password=N31y userName=n password=1) => +User N31|N31|2; +User n|1|2; status 1
"<User><userName>&lt;%s ü</userName><password>a&amp;b%%</password></User>" => +User <%s ü|a&b%%|2; status 1
User(userName=n password=1 userName={guest|n|o'hara} password=x userName=m password=2) => +User n|1|2; status 3
User(userName=n password=1 userName=m password=p'q userName=m password=2) => +User n|1|2; status 3, status 1
UserList(User(userName=n password=1)) => status 3
)");
}

TEST_F(UsersTest, PasswordsAreChangedByAList) {
  // A User without a name is the one before it.
  expect_effects(kWords + R"(
PUT $ userlist(User(userName=admin password=a) USER(id=1 USERNAME=viewer PASSWORD=x userName=guest password=g password=h))
 => User/admin Password=a; User/viewer Password=x; User/guest Password=h; status 1
userlist(User(password=x userName=viewer password=) User(userName= password=x) User()) => status 1
userlist(User(userName=viewer password=x) User(password=b)) => User/viewer Password=b; status 1
userlist(User(userName=Anonymous password=x) User(userName=guest password=g)) => User/guest Password=g; status 1
userlist(userName=viewer password=x Users(userName=viewer password=x) User(User(userName=viewer password=x))) => status 1
userlist(User(userName=viewer password=a'b userName=guest password=g) User(userName=o'hara password=x)
 User(userName=viewer password=x)) => User/viewer Password=x; status 3, status 3, status 1
User(userName=viewer password=x) => status 3
)");
}

}  // namespace
}  // namespace psia_tests
