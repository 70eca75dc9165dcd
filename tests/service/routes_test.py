"""Which URL, method and user level reach a handler: those of the tables that people read."""
import pathlib
import re

import pytest

from answers import status
from camera import REQUESTS
from pages import ROOT, rows_of

USERS = {"nobody": 4, "guest": 3, "viewer": 2, "operator": 1, "admin": 0}  # with their levels
TRIGGERS = "/PSIA/Custom/Event/triggers"
# Their handler itself answers status 4.
ALWAYS_REFUSED = [("POST", TRIGGERS), ("DELETE", TRIGGERS), ("POST", TRIGGERS + "/Sensor-0")]

# {URL: (match, {method: highest level})}
TABLE = {}
for page in ("docs/reference.md", "docs/reference/lists.md"):
    for _, (url, match, methods, *_) in rows_of(ROOT / page, "`/PSIA/.*`"):
        levels = re.findall(r"([A-Z]+)(?:]\([^)]*\))? (?:0–)?(\d)", methods)
        highest = {method: int(level) for method, level in levels}
        TABLE[url.strip("`").replace("ID", "Sensor-0")] = match, highest


def highest_levels(uri):
    """For each method. A method that a URL does not offer is served as that of a URL with which it begins."""
    highest = {}
    for url, (match, levels) in sorted(TABLE.items()):
        if uri == url or match == "begins" and uri.startswith(url):
            highest |= levels
    return highest


@pytest.mark.parametrize("uri", TABLE)
def test_a_method_is_refused_above_the_level_of_its_table(camera, uri):
    camera.execute("insert into User values ('nobody', 'nobody', 4)")
    REQUESTS.remove()  # no daemon is waited for
    for method in ("GET", "PUT", "POST", "DELETE"):
        highest = -1 if (method, uri) in ALWAYS_REFUSED else highest_levels(uri).get(method, -1)
        for user, level in USERS.items():  # last the administrator, who can delete the others
            refused = camera.call(method, uri, "no XML", user=f"{user}:{user}") == status(4, uri)
            assert refused == (level > highest), f"{method} {uri} as {user}"


@pytest.mark.parametrize("uri", [uri for uri, (match, _) in TABLE.items() if match == "exact"])
def test_a_url_that_is_longer_than_an_exact_one_is_refused(camera, uri):
    assert camera.call("GET", uri + "X") == status(4, uri + "X")


def test_the_program_has_no_url_that_no_table_shows(unstarted_camera):
    program = pathlib.Path(unstarted_camera.program).read_bytes()
    urls = {url.decode() for url in re.findall(b"/PSIA/[ -~]*", program)}
    assert urls or program.startswith(b"#!")  # a script that starts an emulator has none
    assert not urls - {url.partition("Sensor-0")[0] for url in TABLE}


@pytest.mark.parametrize("method, uri", [
    ("", "/PSIA/System/status"), ("GET", ""), ("GET", '/PSIA/<a>&%20%s%n"'),
    pytest.param("GET", "/PSIA/" + 60000 * "x", id="60000 characters"),
])
def test_odd_urls_and_methods_are_invalid_operations(camera, method, uri):
    assert camera.call(method, uri) == status(4, uri)
