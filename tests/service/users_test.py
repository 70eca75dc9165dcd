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
