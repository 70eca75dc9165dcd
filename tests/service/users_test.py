"""The user accounts: admin and anonymous are permanent, and those that are added get level 2."""
import pytest

from camera import elements, status

USERS = "/PSIA/Security/AAA/users"


def test_names_are_listed_as_they_are_stored(camera):
    camera.execute("insert into User values ('<b>%s%%%%', 'p', 2)")
    assert "<id><b>%s%</id><userName><b>%s%</userName>" in camera.call("GET", USERS)  # %% is shown as %


@pytest.mark.parametrize("user, shown", [
    # Up to three characters are a number: any from 1 on is the first account that is not permanent.
    ("1", "operator"), ("999", "operator"), ("0", None), ("bob", None),
    ("1000", "1000"), ("Admin", None),
])
def test_a_user_is_read_by_a_short_number_or_by_name(camera, user, shown):
    camera.execute("insert into User values ('bob', 'p', 2), ('1000', 'p', 2)")
    assert elements(camera.call("GET", f"{USERS}/{user}")).get("userName") == shown


@pytest.mark.parametrize("body, effects", [
    ("<user><userName>admin</userName><PASSWORD>a</PASSWORD><passWord>b</passWord></user>",
     ["User[viewer].Password = b", "status 1"]),
    (f"<User><password>{31 * 'p'}x</password></User>", [f"User[viewer].Password = {31 * 'p'}", "status 1"]),
    # The text of an element is without that of its children.
    ("<User><password>a<x>b</x>%s%%&lt;&#228;<![CDATA[&c]]></password></User>",
     ["User[viewer].Password = a%s%%<ä&c", "status 1"]),
    ("<UserList><User><password>new</password></User></UserList>", ["status 3"]),
])
def test_the_password_of_one_user_is_changed(camera, body, effects):
    assert camera.effects("PUT", USERS + "/viewer", body) == effects


@pytest.mark.parametrize("method, user, effects", [
    ("PUT", "Viewer", ["status 1"]),  # there is no such account
    # A change finds the account by its first 31 characters, a deletion by all of them.
    ("PUT", 31 * "n" + "x", [f"User[{31 * 'n'}].Password = new", "status 1"]),
    ("DELETE", 31 * "n" + "x", [f"User[{31 * 'n'}x] is deleted", "status 1"]),
    ("DELETE", "x'or'1'='1", ["status 3"]),
    # The permanent accounts get no answer at all.
    ("PUT", "Anonymous", []),
    ("DELETE", "ADMIN", []),
])
def test_only_the_user_of_the_url_is_changed_or_deleted(camera, method, user, effects):
    camera.execute(f"insert into User values ('{31 * 'n'}', 'p', 2), ('{31 * 'n'}x', 'p', 2)")
    assert camera.effects(method, f"{USERS}/{user}", "<User><password>new</password></User>") == effects


def test_without_other_accounts_a_number_is_nobody(camera):
    assert camera.effects("DELETE", USERS)[-1] == "status 1"
    assert camera.effects("GET", USERS + "/1") == ["status 3"]


@pytest.mark.parametrize("body, effects", [
    # Each password that follows a name adds a user.
    ("""<uSER>
          <password>early</password><userName>lost</userName>
          <USERNAME>n</USERNAME><Password/><Password>1</Password><password>late</password>
          <userName>m</userName><password>2</password>
        </uSER>""",
     ["User[n] is added: UserID = n, Password = 1, Level = 2",
      "User[m] is added: UserID = m, Password = 2, Level = 2", "status 1"]),
    # A name that exists ends the list.
    ("""<User>
          <userName>guest</userName><password>2</password>
          <userName>m</userName><password>3</password>
        </User>""", ["status 3"]),
    # So does an insert that fails, but with two documents in one answer.
    ("""<User>
          <userName>n</userName><password>it's</password>
          <userName>m</userName><password>3</password>
        </User>""", [status(3, USERS) + status(1, USERS)]),
])
def test_users_are_added(camera, body, effects):
    assert camera.effects("POST", USERS, body) == effects


@pytest.mark.parametrize("users, effects", [
    ("""<User><userName>admin</userName><password>a</password></User>
        <USER><userName>viewer</userName><password>x</password>
              <userName>guest</userName><password>g</password><password>h</password></USER>""",
     ["User[admin].Password = a", "User[viewer].Password = x", "User[guest].Password = h", "status 1"]),
    # A User without a name is the one before it.
    ("<User><userName>viewer</userName></User><User><password>b</password></User>",
     ["User[viewer].Password = b", "status 1"]),
    ("""<User><userName>anonymous</userName><password>x</password>
              <userName>guest</userName><password>g</password></User>""",
     ["User[guest].Password = g", "status 1"]),
    # A failed update ends its User, and is told before the end of the list is.
    ("""<User><userName>viewer</userName><password>a'b</password>
              <userName>guest</userName><password>not reached</password></User>
        <User><userName>o'hara</userName><password>x</password></User>
        <User><userName>viewer</userName><password>x</password></User>""",
     ["User[viewer].Password = x", status(3, USERS) + status(3, USERS) + status(1, USERS)]),
])
def test_passwords_are_changed_by_a_list(camera, users, effects):
    assert camera.effects("PUT", USERS, f"<userlist>{users}</userlist>") == effects
