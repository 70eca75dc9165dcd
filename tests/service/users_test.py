"""The user accounts: admin and anonymous are permanent, and those that are added get level 2."""
import pytest

from answers import DEVICE_ERROR, OK

USERS = "/PSIA/Security/AAA/users"
LONGEST = 31 * "n"  # the longest name that a change looks for


@pytest.mark.parametrize("method, effects", [
    pytest.param("PUT", [f"User[{LONGEST}].Password = new", OK], id="a change truncates the name"),
    pytest.param("DELETE", [f"User[{LONGEST}x] is deleted", OK], id="a deletion does not"),
])
def test_a_user_with_a_long_name_is_changed_or_deleted(camera, method, effects):
    camera.execute(f"insert into User values ('{LONGEST}', 'p', 2), ('{LONGEST}x', 'p', 2)")
    body = "<User><password>new</password></User>"
    assert camera.effects(method, f"{USERS}/{LONGEST}x", body) == effects


def test_a_number_is_nobody_when_only_permanent_accounts_are_left(camera):
    assert camera.effects("DELETE", USERS) == [
        "User[operator] is deleted", "User[viewer] is deleted", "User[guest] is deleted", OK]
    assert camera.effects("GET", USERS + "/1") == [DEVICE_ERROR]
