"""The clock and the two time zones: the stored one, and the one that PUT time sets for this process."""
import datetime
import os
import pathlib
import re

import pytest

from answers import DEVICE_BUSY, DEVICE_ERROR, OK, elements, offset_of
from camera import DIRECTORY
from simulator.messages import BUSY

TIME = "/PSIA/System/time"
LOCAL_TIME = TIME + "/localTime"
TIME_ZONE = TIME + "/timeZone"
HOUR = 60 * 60  # seconds
HALF_PAST_FIVE = 5 * HOUR + HOUR // 2
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


def test_any_mode_but_2_is_shown_as_manual(camera):
    camera.execute("update Network set DateTimeSync=1")
    assert elements(camera.call("GET", TIME))["timeMode"] == "manual"


# The stored zone.

@pytest.mark.parametrize("name", [
    pytest.param("Nowhere", id="no file"),
    pytest.param("", id="the directory itself"),
    pytest.param("Africa", id="a directory"),
    pytest.param("cst-0", id="CST-0 in small letters"),
    pytest.param(BESIDE_THE_SETTINGS + "large", id="a file of more than 1 MiB"),
])
def test_a_stored_zone_without_a_file_is_gmt(camera, name):
    (DIRECTORY / "large").write_bytes((1 << 20) * b"x" + b"\n")
    descriptors = camera.open_descriptors()
    camera.execute(f"update Network set TimeZone='{name}'")
    assert bare_text(camera, TIME_ZONE) == "GMT0"
    assert camera.open_descriptors() == descriptors


def test_the_zone_cst_0_needs_no_file(camera):
    camera.execute("update Network set TimeZone='CST-0'")
    assert bare_text(camera, TIME_ZONE) == "CST-0"


@pytest.mark.parametrize("content, rule", [
    pytest.param("EST5\n", "EST5", id="one line"),
    pytest.param("a\nEST5", "EST", id="the last byte is taken to be a line feed"),
    pytest.param("", "GMT0", id="an empty file"),
    pytest.param("a\n" + 3000 * "x" + "\n", 3000 * "x", id="3000 characters"),
])
def test_the_rule_of_a_zone_is_the_last_line_of_its_file(camera, content, rule):
    longest_name = BESIDE_THE_SETTINGS.ljust(127, "z")
    (ZONES / longest_name).write_text(content)
    camera.execute(f"update Network set TimeZone='{longest_name}truncated'")
    assert bare_text(camera, TIME_ZONE) == rule
    assert elements(camera.call("GET", TIME))["timeZone"] == rule[:127]


def test_a_stored_zone_is_told_to_the_daemons_and_their_reply_is_the_answer(camera):
    assert camera.effects("PUT", TIME_ZONE, "CET-1", replies=[BUSY]) == [
        "Network.TimeZone = Africa/Algiers", "message 7 time zone: zone = Africa/Algiers", DEVICE_BUSY]


# The clock.

@pytest.mark.parametrize("local_time, sent", [
    pytest.param("2024-13-01T25:61:61", "year = 2025, month = 1, day = 2, hour = 2, minute = 2, second = 1",
                 id="13 months, 25 h, 61 min and 61 s"),
    pytest.param("1969-12-31T18:59:59",
                 "year = 1969, month = 12, day = 31, hour = 18, minute = 59, second = 59",
                 id="one second before the epoch"),
    pytest.param("2024", "year = 2023, month = 11, day = 30, hour = 0, minute = 0, second = 0",
                 id="the rest of a short text is 0"),  # day 0 of month 0
])
def test_a_manual_time_is_brought_into_range_and_sent(camera, local_time, sent):
    longest_server = 127 * "n"
    camera.execute(f"update Network set NTPServer='{longest_server}x', NTPInterval=15")
    assert camera.effects("PUT", TIME, f"""
        <Time>
          <timeMode>NTPX</timeMode>
          <localTime>2001-02-03T04:05:06</localTime>
          <localTime>{local_time}</localTime>
          <timeZone>EST5EDT,M3.2.0,M11.1.0</timeZone>
        </Time>""") == [
            f"message 6 time: mode = 0, server = {longest_server}, interval = 15, {sent}", OK]


def test_a_time_that_cannot_be_represented_is_not_sent(camera):
    year_of_14_digits = "20240615103000"
    assert camera.effects("PUT", TIME, f"""
        <Time>
          <timeMode>manual</timeMode>
          <localTime>{year_of_14_digits}</localTime>
        </Time>""") == [DEVICE_ERROR]


def test_in_ntp_mode_the_present_time_is_sent(camera):
    message, received = camera.effects("PUT", TIME, """
        <time>
          <TIMEMODE>ntp</TIMEMODE>
          <localTime>2024-06-15T08:30:00</localTime>
          <timeZone>AAA-5:30</timeZone>
        </time>""", replies=[BUSY])
    settings, time = message.split(", year = ")
    assert settings == "message 6 time: mode = 2, server = pool.ntp.org, interval = 60"
    year_to_second = [int(number) for number in re.findall(r"\d+", time)]
    assert offset_of(datetime.datetime(*year_to_second).isoformat()) == HALF_PAST_FIVE
    assert received == DEVICE_BUSY


@pytest.mark.parametrize("mode", [-1, 1, 2])
def test_the_bare_time_needs_a_body_but_is_ignored_unless_the_mode_is_manual(camera, mode):
    camera.execute(f"update Network set DateTimeSync={mode}")
    assert camera.effects("PUT", LOCAL_TIME, "2023-02-30T10:00:00") == [OK]
    assert camera.effects("PUT", LOCAL_TIME, "") == [DEVICE_ERROR]


def test_in_manual_mode_any_bare_time_is_sent(camera):
    # Without a number everything is 0: day 0 of month 0 of the year 0.
    assert camera.effects("PUT", LOCAL_TIME, "x", replies=[BUSY]) == [
        "message 6 time: mode = 0, server = pool.ntp.org, interval = 60, "
        "year = -1, month = 11, day = 30, hour = 0, minute = 0, second = 0", DEVICE_BUSY]


# The zone of this process.

def test_a_zone_that_is_set_holds_for_times_but_is_not_stored(camera):
    assert put_zone(camera, "AAA-5:30") == OK
    assert shown_zone(camera) == ("AAA-5:30", HALF_PAST_FIVE)
    camera.execute("update Network set TimeZone='Africa/Algiers'")
    assert bare_text(camera, TIME_ZONE) == "CET-1"
    assert shown_zone(camera) == ("AAA-5:30", HALF_PAST_FIVE)


def test_a_zone_that_is_no_rule_changes_nothing(camera):
    assert put_zone(camera, "AAA-5:30") == OK
    assert put_zone(camera, "AAA24") == DEVICE_ERROR  # an offset has less than 24 hours
    assert shown_zone(camera) == ("AAA-5:30", HALF_PAST_FIVE)


def test_63_characters_of_a_zone_are_kept(camera):
    rule = 31 * "A" + "05:00:00" + 31 * "B"  # names have at most 31 characters
    assert put_zone(camera, rule) == OK
    assert shown_zone(camera) == (rule[:63], -5 * HOUR)


def test_a_zone_is_set_even_when_no_message_can_be_sent_and_ended_by_an_empty_one(camera):
    camera.execute("delete from Network")
    assert put_zone(camera, "BBB+3") == DEVICE_ERROR
    assert shown_zone(camera) == ("BBB+3", -3 * HOUR)
    assert put_zone(camera, "") == DEVICE_ERROR
    assert shown_zone(camera) == ("GMT0", 0)
