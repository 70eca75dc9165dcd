"""Who is watching the streams."""
import pytest

from answers import DEVICE_ERROR

CHANNELS = "/PSIA/Streaming/channels/"
STATUS = "/PSIA/Streaming/status"
MASTER_VIEWERS = ["192.168.1.50", "192.168.1.51"]
SLAVE_VIEWERS = ["192.168.1.60"]


@pytest.mark.parametrize("channel, viewers", [
    pytest.param("slave-0", SLAVE_VIEWERS, id="its name in any case"),
    pytest.param("1234567", SLAVE_VIEWERS, id="another text as long as Slave-0"),
    pytest.param("2", MASTER_VIEWERS, id="a shorter one"),
    pytest.param("Slave-0/", MASTER_VIEWERS, id="a longer one"),
])
def test_a_url_as_long_as_that_of_the_slave_stream_shows_its_viewers(camera, channel, viewers):
    assert camera.shown(CHANNELS + channel + "/STATUS", "ipAddress") == viewers


def test_two_percent_signs_are_shown_as_stored_for_one_stream_and_halved_twice_for_all(camera):
    camera.execute("update ClientList set Address='%%%%d%s%%%%%'")
    assert camera.shown(CHANNELS + "Slave-0/status", "ipAddress") == ["%%%%d%s%%%%%"]
    assert camera.shown(STATUS, "ipAddress") == 3 * ["%d%s%%"]


def test_one_stream_without_viewers_is_a_device_error(camera):
    # All viewers watch a stream that there is not, since stored names are case-sensitive.
    camera.execute("update ClientList set StreamName='slave-0'")
    assert camera.effects("GET", CHANNELS + "Slave-0/status") == [DEVICE_ERROR]
    assert camera.effects("GET", CHANNELS + "1/status") == [DEVICE_ERROR]


def test_all_streams_without_viewers_are_an_empty_list(camera):
    camera.execute("delete from ClientList")
    assert camera.shown(STATUS, "totalStreamingSessions") == ["0"]
    camera.execute("drop table ClientList")
    assert camera.effects("GET", STATUS) == [DEVICE_ERROR]
