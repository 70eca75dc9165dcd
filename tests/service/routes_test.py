"""Which URL, method and user level reach a handler."""
import os
import pathlib

import pytest

from camera import REQUESTS, status

LEVELS = {"admin": 0, "operator": 1, "viewer": 2, "guest": 3, "nobody": 4}
TAILS = {"kLonger": "Sensor-0", "kFlat": "Sensor-0", "kNested": "Sensor-0/notifications"}
ROUTES = [line.split() for line in pathlib.Path(os.environ["PSIA_ROUTES"]).read_text().splitlines()]


# pages_test compares this table with the one that people read.
@pytest.mark.parametrize("prefix, match, methods", [(row[0], row[1], row[2:]) for row in ROUTES])
def test_the_program_does_what_its_route_table_says(camera, prefix, match, methods):
    camera.execute("insert into User values ('nobody', 'nobody', 4)")
    REQUESTS.remove()  # no daemon is waited for
    uri = prefix + TAILS.get(match, "")
    for method, highest in [rule.split("=") for rule in methods]:
        if uri == "/PSIA/Custom/Event/triggers" and method in ("POST", "DELETE"):
            highest = -1  # the handler itself answers 4
        for user, level in reversed(LEVELS.items()):  # the administrator, who may delete the others, last
            refused = camera.call(method, uri, "no XML", user=f"{user}:{user}") == status(4, uri)
            assert refused == (level > int(highest)), f"{method} {uri} as {user}"


@pytest.mark.parametrize("method, uri", [
    ("", "/PSIA/System/status"), ("GET", ""), ("GET", '/PSIA/<a>&%20%s%n"'),
    pytest.param("GET", "/PSIA/" + 60000 * "x", id="60000 characters"),
])
def test_odd_urls_and_methods_are_invalid_operations(camera, method, uri):
    assert camera.call(method, uri) == status(4, uri)
