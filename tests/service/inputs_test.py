"""The video input, and that the daemons' replies are the answers. docs/reference/media.md shows the rest."""
import pytest

from answers import DEVICE_BUSY, DEVICE_ERROR
from simulator.messages import BUSY

VIDEO = "/PSIA/System/Video/inputs/channels/1"
ADDRESS = "/PSIA/System/Network/interfaces/eth0/ipAddress"
UNKNOWN_RESULT = -1


@pytest.mark.parametrize("uri, body", [
    ("/PSIA/System/Audio/channels/1", "<AudioChannel/>"),
    (VIDEO, "<VideoInputChannel/>"),
    (ADDRESS, "<IPAddress><addressingType>dynamic</addressingType></IPAddress>"),
    ("/PSIA/System/factoryReset?mode=full", ""),
    ("/PSIA/System/time", "<Time/>"),
    ("/PSIA/System/time/localTime", "2024-07-01T12:00:00"),
    ("/PSIA/System/time/timeZone", "CET-1"),
])
def test_the_reply_of_the_daemons_is_the_answer(camera, uri, body):
    assert camera.effects("PUT", uri, body, [BUSY])[-1] == DEVICE_BUSY
    assert camera.effects("PUT", uri, body, [UNKNOWN_RESULT])[-1] == DEVICE_ERROR


def test_a_body_with_an_id_sets_all_levels_of_that_input(camera):
    camera.execute("insert into VideoSource (VideoSourceID, Brightness, Hue) values (1, 11, 12)")
    assert camera.effects("PUT", VIDEO, """
        <VideoInputChannel>
          <id>1</id>
          <hueLevel>9</hueLevel>
        </VideoInputChannel>""")[:-2] == [
            "VideoSource[1].Brightness = 0", "VideoSource[1].Contrast = 0", "VideoSource[1].Hue = 9"]
