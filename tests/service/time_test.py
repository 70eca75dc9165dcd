"""The clock and the two time zones: the stored one, and the one that PUT time sets for this process."""
import datetime
import os
import pathlib
import re

import pytest

from answers import DEVICE_ERROR, OK, elements, offset_of
from camera import DIRECTORY

TIME = "/PSIA/System/time"
LOCAL_TIME = TIME + "/localTime"
TIME_ZONE = TIME + "/timeZone"
HOUR = 60 * 60  # seconds
HALF_PAST_FIVE = 5 * HOUR + HOUR // 2  # the offset of AAA-5:30: in a rule, minus is ahead of UTC
ZONES = pathlib.Path("/usr/share/zoneinfo")
BESIDE_THE_SETTINGS = os.path.relpath(DIRECTORY, ZONES) + "/"  # from the zones; there a test may write


def bare_text(camera, uri):
    """The body of an answer that is no document."""
    return camera.call("GET", uri).split("\r\n\r\n")[1]


def put_zone(camera, zone):
    """What a Time document without a timeMode and with this zone is answered."""
    return camera.effects("PUT", TIME, f"<Time><timeZone>{zone}</timeZone></Time>")[-1]


def shown_zone(camera):
    """The rule that is shown, and by how many seconds the time that is shown is ahead of UTC."""
    shown = elements(camera.call("GET", TIME))
    offset = offset_of(shown["localTime"])
    assert offset_of(bare_text(camera, LOCAL_TIME)) == offset
    return shown["timeZone"], offset


# The stored zone.

def test_a_stored_zone_with_a_file_of_more_than_1_mib_is_gmt(camera):
    (DIRECTORY / "large").write_bytes((1 << 20) * b"x" + b"\n")
    camera.execute(f"update Network set TimeZone='{BESIDE_THE_SETTINGS}large'")
    assert bare_text(camera, TIME_ZONE) == "GMT0"


@pytest.mark.parametrize("content, rule", [
    pytest.param("a\nEST5", "EST", id="the last byte is taken to be a line feed"),
    pytest.param("", "GMT0", id="an empty file"),
    pytest.param("a\n" + 3000 * "x" + "\n", 3000 * "x", id="3000 characters"),
])
def test_the_rule_of_a_zone_is_the_last_line_of_its_file(camera, content, rule):
    longest_name = BESIDE_THE_SETTINGS.ljust(127, "z")  # of a longer one the rest is ignored
    (ZONES / longest_name).write_text(content)
    camera.execute(f"update Network set TimeZone='{longest_name}truncated'")
    assert bare_text(camera, TIME_ZONE) == rule
    assert elements(camera.call("GET", TIME))["timeZone"] == rule[:127]  # as a document shows it


# The clock.

def test_the_stored_server_and_interval_are_sent(camera):
    longest_server = 127 * "n"
    camera.execute(f"update Network set NTPServer='{longest_server}x', NTPInterval=15")
    assert camera.effects("PUT", LOCAL_TIME, "2024-06-15T08:30:00") == [
        f"message 6 time: mode = 0, server = {longest_server}, interval = 15, "
        "year = 2024, month = 6, day = 15, hour = 8, minute = 30, second = 0", OK]


def test_in_ntp_mode_the_present_time_is_sent(camera):
    message, received = camera.effects("PUT", TIME, """
        <time>
          <TIMEMODE>ntp</TIMEMODE>
          <localTime>2024-06-15T08:30:00</localTime>
          <timeZone>AAA-5:30</timeZone>
        </time>""")
    settings, time = message.split(", year = ")
    # Mode 2 is NTP; server and interval are those of the factory.
    assert settings == "message 6 time: mode = 2, server = pool.ntp.org, interval = 60"
    year_to_second = [int(number) for number in re.findall(r"\d+", time)]
    assert offset_of(datetime.datetime(*year_to_second).isoformat()) == HALF_PAST_FIVE
    assert received == OK


@pytest.mark.parametrize("mode", [-1, 1])
def test_the_bare_time_is_ignored_unless_the_stored_mode_is_0(camera, mode):
    camera.execute(f"update Network set DateTimeSync={mode}")
    assert camera.effects("PUT", LOCAL_TIME, "2023-02-30T10:00:00") == [OK]  # though there is no such day
    assert camera.effects("PUT", LOCAL_TIME, "") == [DEVICE_ERROR]  # an empty body, in every mode


# The zone of this process.

def test_a_zone_that_is_set_holds_for_times_but_is_not_stored(camera):
    assert put_zone(camera, "AAA-5:30") == OK
    assert shown_zone(camera) == ("AAA-5:30", HALF_PAST_FIVE)
    camera.execute("update Network set TimeZone='Africa/Algiers'")
    assert bare_text(camera, TIME_ZONE) == "CET-1"  # the rule of Africa/Algiers
    assert put_zone(camera, "AAA24") == DEVICE_ERROR  # no rule: an offset has less than 24 hours
    assert shown_zone(camera) == ("AAA-5:30", HALF_PAST_FIVE)


def test_a_zone_is_set_even_when_no_message_can_be_sent_and_ended_by_an_empty_one(camera):
    camera.execute("delete from Network")
    assert put_zone(camera, "BBB+3") == DEVICE_ERROR
    assert shown_zone(camera) == ("BBB+3", -3 * HOUR)
    assert put_zone(camera, "") == DEVICE_ERROR
    assert shown_zone(camera) == ("GMT0", 0)
