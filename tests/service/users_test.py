"""The user accounts: admin and anonymous are permanent, and those that are added get level 2."""
import pytest

from answers import DEVICE_ERROR, OK, elements

USERS = "/PSIA/Security/AAA/users"
LONGEST = 31 * "n"  # the longest name that a change looks for, and the longest password that is stored


def test_names_are_shown_unescaped(camera):
    camera.execute("insert into User values ('<b>', 'p', 2)")
    assert "<id><b></id><userName><b></userName>" in camera.call("GET", USERS)


@pytest.mark.parametrize("user, shown", [
    pytest.param("1", "operator", id="1 is the first account that is not permanent"),
    pytest.param("999", "operator", id="so is every number of up to three digits"),
    pytest.param("0", None, id="0 is nobody"),
    pytest.param("1000", "1000", id="four digits are a name"),
    pytest.param("Admin", None, id="names are case-sensitive"),
])
def test_a_user_is_read_by_a_short_number_or_by_name(camera, user, shown):
    camera.execute("insert into User values ('1000', 'p', 2)")
    assert elements(camera.call("GET", f"{USERS}/{user}")).get("userName") == shown


@pytest.mark.parametrize("body, stored", [
    pytest.param("<user><userName>admin</userName><PASSWORD>a</PASSWORD><passWord>b</passWord></user>", "b",
                 id="the last password counts and the name in the body does not"),
    pytest.param(f"<User><password>{LONGEST}x</password></User>", LONGEST, id="truncated"),
    pytest.param("<User><password>a<x>b</x>c</password></User>", "ac",
                 id="without the text of child elements"),
    pytest.param("<User><password>%s%%&lt;&#228;<![CDATA[&d]]></password></User>", "%s%%<ä&d",
                 id="percent signs, references and CDATA"),
])
def test_the_password_of_one_user_is_changed(camera, body, stored):
    assert camera.effects("PUT", USERS + "/viewer", body) == [f"User[viewer].Password = {stored}", OK]


@pytest.mark.parametrize("method, user, effects", [
    pytest.param("PUT", LONGEST + "x", [f"User[{LONGEST}].Password = new", OK],
                 id="a change truncates the name"),
    pytest.param("DELETE", LONGEST + "x", [f"User[{LONGEST}x] is deleted", OK], id="a deletion does not"),
    pytest.param("DELETE", "x'or'1'='1", [DEVICE_ERROR], id="quotes"),
    pytest.param("PUT", "Anonymous", [], id="a change of anonymous gets no answer"),
])
def test_only_the_user_of_the_url_is_changed_or_deleted(camera, method, user, effects):
    camera.execute(f"insert into User values ('{LONGEST}', 'p', 2), ('{LONGEST}x', 'p', 2)")
    assert camera.effects(method, f"{USERS}/{user}", "<User><password>new</password></User>") == effects


def test_a_number_is_nobody_when_only_permanent_accounts_are_left(camera):
    assert camera.effects("DELETE", USERS) == [
        "User[operator] is deleted", "User[viewer] is deleted", "User[guest] is deleted", OK]
    assert camera.effects("GET", USERS + "/1") == [DEVICE_ERROR]


def test_each_password_that_follows_a_name_adds_a_user(camera):
    assert camera.effects("POST", USERS, """
        <uSER>
          <password>before any name</password>
          <userName>no password follows</userName>
          <USERNAME>ann</USERNAME>
          <Password/>
          <Password>1</Password>
          <password>the user is added already</password>
          <userName>ben</userName>
          <password>2</password>
        </uSER>""") == [
            "User[ann] is added: UserID = ann, Password = 1, Level = 2",
            "User[ben] is added: UserID = ben, Password = 2, Level = 2", OK]


@pytest.mark.parametrize("users, effects", [
    pytest.param("""
        <User><userName>admin</userName><password>a</password></User>
        <USER>
          <userName>viewer</userName><password>v</password>
          <userName>guest</userName><password>first</password><password>last</password>
        </USER>""",
                 ["User[admin].Password = a", "User[viewer].Password = v", "User[guest].Password = last", OK],
                 id="several in one User"),
    pytest.param("""
        <User><userName>viewer</userName></User>
        <User><password>v</password></User>""",
                 ["User[viewer].Password = v", OK], id="a User without a name is the one before it"),
])
def test_passwords_are_changed_by_a_list(camera, users, effects):
    assert camera.effects("PUT", USERS, f"<userlist>{users}</userlist>") == effects
