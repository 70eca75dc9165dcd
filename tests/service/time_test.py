"""The clock and the two time zones: the stored one, and the one that PUT time sets for this process."""
import datetime
import pathlib
import re

import pytest

from camera import DIRECTORY, elements, offset_of

TIME = "/PSIA/System/time"


def stored_rule(camera, name):
    """What GET timeZone shows when this name is stored."""
    camera.execute(f"update Network set TimeZone='{name}'")
    return camera.call("GET", TIME + "/timeZone").split("\r\n\r\n")[1]


def test_any_mode_but_2_is_shown_as_manual(camera):
    camera.execute("update Network set DateTimeSync=1")
    assert elements(camera.call("GET", TIME))["timeMode"] == "manual"


def test_a_stored_zone_without_a_file_is_gmt(camera):
    descriptors = camera.open_descriptors()
    (DIRECTORY / "zone").write_bytes((1 << 20) * b"x" + b"\n")  # 1 MiB is the most
    for name in ["Nowhere", "", "Africa", "cst-0", "../../local/orvid/zone"]:
        assert stored_rule(camera, name) == "GMT0"
    assert stored_rule(camera, "CST-0") == "CST-0"  # the device's own name
    assert camera.open_descriptors() == descriptors


@pytest.mark.parametrize("content, rule", [
    ("EST5\n", "EST5"),
    ("a\nEST5", "EST"),  # the last byte is taken to be a line feed
    ("", "GMT0"),
    ("a\n" + 3000 * "x" + "\n", 3000 * "x"),
])
def test_the_rule_of_a_zone_is_the_last_line_of_its_file(camera, content, rule):
    name = "../../local/orvid/".ljust(127, "z")  # 127 characters of a stored name are read
    (pathlib.Path("/usr/share/zoneinfo") / name).write_text(content)
    assert stored_rule(camera, name + "y") == rule
    assert elements(camera.call("GET", TIME))["timeZone"] == rule[:127]


@pytest.mark.parametrize("local_time, sent", [
    ("2024-13-01T25:61:61", "year = 2025, month = 1, day = 2, hour = 2, minute = 2, second = 1"),
    # One second before the epoch is a time, too.
    ("1969-12-31T18:59:59", "year = 1969, month = 12, day = 31, hour = 18, minute = 59, second = 59"),
    # The rest of a short text is 0: day 0 of month 0.
    ("2024", "year = 2023, month = 11, day = 30, hour = 0, minute = 0, second = 0"),
])
def test_a_manual_time_is_brought_into_range_and_sent(camera, local_time, sent):
    camera.execute(f"update Network set NTPServer='{127 * 'n'}x', NTPInterval=15")
    assert camera.effects("PUT", TIME, f"""
        <Time>
          <timeMode>NTPX</timeMode>
          <localTime>2001-02-03T04:05:06</localTime>
          <localTime>{local_time}</localTime>
          <timeZone>EST5EDT,M3.2.0,M11.1.0</timeZone>
        </Time>
        """) == [f"message 6 time: mode = 0, server = {127 * 'n'}, interval = 15, {sent}", "status 1"]


def test_a_time_that_cannot_be_represented_is_not_sent(camera):
    assert camera.effects("PUT", TIME, """
        <Time><timeMode>manual</timeMode><localTime>20240615103000</localTime></Time>""") == ["status 3"]


@pytest.mark.parametrize("mode", ["<TIMEMODE>ntp</TIMEMODE>", ""])
def test_in_ntp_mode_the_present_time_is_sent(camera, mode):
    message, answer = camera.effects("PUT", TIME, f"""
        <time>{mode}<localTime>2024-06-15T08:30:00</localTime><timeZone>AAA-5:30</timeZone></time>
        """, replies=[1])
    assert message.startswith("message 6 time: mode = 2, server = pool.ntp.org, interval = 60, year = ")
    sent = datetime.datetime(*[int(number) for number in re.findall(r"= (\d+)", message)[-6:]])
    assert offset_of(sent.isoformat()) == 19800
    assert answer == "status 2"


def test_a_zone_holds_for_this_process_and_is_not_stored(camera):
    def put_zone(zone):
        return camera.effects("PUT", TIME, f"<Time><timeZone>{zone}</timeZone></Time>")[-1]

    def shown_zone():
        shown = elements(camera.call("GET", TIME))
        bare_time = camera.call("GET", TIME + "/localTime").split("\r\n\r\n")[1]
        assert offset_of(bare_time) == offset_of(shown["localTime"])
        return shown["timeZone"], offset_of(bare_time)
    assert put_zone("AAA-5:30") == "status 1"
    assert stored_rule(camera, "Africa/Algiers") == "CET-1"
    assert put_zone("AAA24") == "status 3"
    assert shown_zone() == ("AAA-5:30", 19800)
    # Of a valid rule 63 characters are kept.
    assert put_zone(31 * "A" + "05:00:00" + 31 * "B") == "status 1"
    assert shown_zone() == (31 * "A" + "05:00:00" + 24 * "B", -18000)
    # It is set even where no message can be sent then; an empty one ends it.
    camera.execute("delete from Network")
    assert put_zone("BBB+3") == "status 3"
    assert shown_zone() == ("BBB+3", -10800)
    assert put_zone("") == "status 3"
    assert shown_zone() == ("GMT0", 0)


@pytest.mark.parametrize("rule, effects", [
    ("CET-1",
     ["Network.TimeZone = Africa/Algiers", "message 7 time zone: zone = Africa/Algiers", "status 2"]),
    ("Europe/Paris", ["status 3"]),
])
def test_the_stored_zone_is_found_by_its_rule(camera, rule, effects):
    assert camera.effects("PUT", TIME + "/timeZone", rule, replies=[1]) == effects


@pytest.mark.parametrize("mode, body, effects", [
    (0, "x",
     ["message 6 time: mode = 0, server = pool.ntp.org, interval = 60, "
      "year = -1, month = 11, day = 30, hour = 0, minute = 0, second = 0", "status 2"]),
    # In any other mode the time is accepted and ignored, but not a missing body.
    (-1, "2023-02-30T10:00:00", ["status 1"]),
    (2, "", ["status 3"]),
])
def test_the_bare_time_is_set_in_manual_mode_only(camera, mode, body, effects):
    camera.execute(f"update Network set DateTimeSync={mode}")
    assert camera.effects("PUT", TIME + "/localTime", body, replies=[1]) == effects
