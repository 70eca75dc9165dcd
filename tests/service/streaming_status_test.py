"""Who is watching the streams."""
import pytest

CHANNELS = "/PSIA/Streaming/channels/"
STATUS = "/PSIA/Streaming/status"


@pytest.mark.parametrize("identifier, addresses", [
    ("slave-0", ["192.168.1.60"]),
    ("1234567", ["192.168.1.60"]),
    ("2", ["192.168.1.50", "192.168.1.51"]),
    ("Slave-0/", ["192.168.1.50", "192.168.1.51"]),
])
def test_urls_of_39_characters_are_the_slave_stream(camera, identifier, addresses):
    assert camera.shown(CHANNELS + identifier + "/STATUS", "ipAddress") == addresses


def test_percent_signs_are_shown_as_stored_and_halved_by_all(camera):
    camera.execute("update ClientList set Address='%%%%d%s%%'")
    assert camera.shown(CHANNELS + "Slave-0/status", "ipAddress") == ["%%%%d%s%%"]
    assert camera.shown(STATUS, "ipAddress") == ["%d%s%"] * 3


def test_one_stream_without_viewers_is_a_device_error_all_are_empty(camera):
    camera.execute("update ClientList set StreamName='slave-0'")
    assert camera.effects("GET", CHANNELS + "Slave-0/status") == ["status 3"]
    camera.execute("delete from ClientList")
    assert camera.shown(STATUS, "totalStreamingSessions") == ["0"]
    camera.execute("drop table ClientList")
    assert camera.effects("GET", STATUS) == ["status 3"]
