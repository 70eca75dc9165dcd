"""Which URL, method and user level reach a handler."""
import pathlib
import re

import pytest

from camera import REQUESTS, status

LEVELS = {"admin": 0, "operator": 1, "viewer": 2, "guest": 3, "nobody": 4}
# The rows of the route table: how their prefixes match, the highest user levels that may GET, PUT, POST and
# DELETE what they serve (-1: none may), and the prefixes. What a row does not offer a row below it may.
ROUTES = {
    ("kPrefix", 3, -1, -1, -1): [
        "/PSIA/indexr", "/PSIA/index", "/PSIA/description", "/PSIA/System/index", "/PSIA/System/description",
        "/PSIA/System/status", "/PSIA/System/Network/index", "/PSIA/System/Network/description",
        "/PSIA/System/Audio/index", "/PSIA/System/Audio/description", "/PSIA/System/Audio/channels",
        "/PSIA/System/Video/index", "/PSIA/System/Video/description", "/PSIA/Security/index",
        "/PSIA/Security/description", "/PSIA/Security/AAA/index", "/PSIA/Security/AAA/description",
        "/PSIA/Streaming/index", "/PSIA/Streaming/description", "/PSIA/Streaming/status",
    ],
    ("kPrefix", 3, 1, -1, -1): [
        "/PSIA/System/time/localTime", "/PSIA/System/time/timeZone", "/PSIA/System/time",
        "/PSIA/System/Audio/channels/1", "/PSIA/System/Video/inputs/channels/1", "/PSIA/Custom/Event/index",
        "/PSIA/Custom/Event/description", "/PSIA/Custom/Event/triggers", "/PSIA/Custom/Event/schedule",
        "/PSIA/Custom/Event/notification", "/PSIA/Custom/Event",
    ],
    ("kPrefix", 3, 1, 1, 1): [
        "/PSIA/System/time/ntpServers/", "/PSIA/System/time/ntpServers",
        "/PSIA/Custom/Event/notification/mailing/", "/PSIA/Custom/Event/notification/mailing",
        "/PSIA/Custom/Event/notification/ftp/", "/PSIA/Custom/Event/notification/ftp",
    ],
    ("kPrefix", -1, 0, -1, -1): [
        "/PSIA/System/reboot", "/PSIA/System/updateFirmware", "/PSIA/System/factoryReset",
    ],
    ("kPrefix", 0, 0, -1, -1): ["/PSIA/System/configurationData"],
    ("kPrefix", 3, 0, -1, -1): ["/PSIA/System/deviceInfo"],
    ("kExact", 3, 0, -1, -1): [
        "/PSIA/System/Network/interfaces/eth0/ipAddress", "/PSIA/System/Network/interfaces/eth0/discovery",
        "/PSIA/System/Network/interfaces/eth0",
    ],
    ("kExact", 3, -1, -1, -1): [
        "/PSIA/System/Network/interfaces", "/PSIA/System/Video/inputs/channels", "/PSIA/System/Video/inputs",
    ],
    ("kLonger", 3, 0, -1, 0): ["/PSIA/Security/AAA/users/"],
    ("kExact", 3, 0, 0, 0): ["/PSIA/Security/AAA/users"],
    ("kLonger", 3, 1, -1, 1): ["/PSIA/Streaming/channels/"],
    ("kExact", 3, 1, 1, 1): ["/PSIA/Streaming/channels"],
    ("kNested", 3, 1, 1, 1): ["/PSIA/Custom/Event/triggers/"],
    ("kFlat", 3, 1, -1, 1): ["/PSIA/Custom/Event/triggers/"],
}
ROWS = [(prefix, *rule) for rule, prefixes in ROUTES.items() for prefix in prefixes]


def test_the_program_has_these_routes_and_no_others():
    source = (pathlib.Path(__file__).parents[2] / "src/routes.cpp").read_text()
    table = re.search(r"kRoutes = .*?\(\{(.*?)\n}\);", source, re.DOTALL)[1]
    row = re.compile(r'\{"(/PSIA[^"]*)", (k\w+),\s*\{\{[^{}]+}}},')
    assert sorted(row.findall(table)) == sorted((prefix, match) for prefix, match, *_ in ROWS)
    assert re.sub(r"//.*", "", row.sub("", table)).strip() == "", "rows that are written in another way"


@pytest.mark.parametrize("prefix, match, get, put, post, delete", ROWS)
def test_who_may_do_what(camera, prefix, match, get, put, post, delete):
    camera.execute("insert into User values ('nobody', 'nobody', 4)")
    REQUESTS.remove()  # no daemon is waited for
    tails = {"kLonger": "Sensor-0", "kFlat": "Sensor-0", "kNested": "Sensor-0/notifications"}
    uri = prefix + tails.get(match, "")
    for method, highest in [("GET", get), ("PUT", put), ("POST", post), ("HEAD", -1), ("DELETE", delete)]:
        for user, level in reversed(LEVELS.items()):  # the administrator, who may delete the others, last
            refused = camera.call(method, uri, "no XML", user=f"{user}:{user}") == status(4, uri)
            assert refused == (level > highest), f"{method} {uri} as {user}"


@pytest.mark.parametrize("uri, root", [
    ("/psia/SYSTEM/Status?x=1", "DeviceStatus"),
    ("/PSIA/System/Audio/channels/17", "AudioChannel"),
    ("/PSIA/System/Audio/channelsX", "AudioChannelList"),
    ("/PSIA/System/Network/interfaces/ETH0/ipaddress", "IPAddress"),
    # Of a URL below the streaming channels the end decides.
    ("/PSIA/Streaming/channels/1/Status", "StreamingSessionStatusList"),
    ("/PSIA/Streaming/channels/1/status?", "StreamingChannel"),
])
def test_urls_match_by_their_beginning_whatever_their_case(camera, uri, root):
    assert re.search(r"\?>\s*<(\w+)", camera.call("geT", uri))[1] == root


@pytest.mark.parametrize("method, uri", [
    ("G", "/PSIA/System/status"), ("GETX", "/PSIA/System/status"), ("", "/PSIA/System/status"),
    ("GET", "/PSIA/Security/AAA/users/"), ("GET", "/PSIA/Security/AAA/usersX"),
    ("GET", ""), ("GET", "/PSIA/inde"), ("GET", "PSIA/index"), ("GET", "/PSIA/%69ndex"),
    ("GET", '/PSIA/<a>&%20%s%n"'), ("GET", "/PSIA/" + 60000 * "x"),
])
def test_other_urls_and_methods_are_invalid_operations(camera, method, uri):
    assert camera.call(method, uri) == status(4, uri)
