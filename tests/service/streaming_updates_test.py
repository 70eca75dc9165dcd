"""Changes of the streaming channels: what is stored, and what the daemons are told at which moment."""
import pytest

from answers import DEVICE_ERROR, OK
from simulator.messages import BUSY, FAILED

CHANNELS = "/PSIA/Streaming/channels"


def test_every_part_is_stored_and_sent_whatever_the_daemons_reply(camera):
    assert camera.effects("PUT", CHANNELS + "/1", """
        <StreamingChannel>
          <Transport><rtspPortNo>8554</rtspPortNo></Transport>
          <Video>
            <videoResolutionWidth>1920</videoResolutionWidth>
            <videoQualityControlType>CBR</videoQualityControlType>
            <constantBitRate>4097</constantBitRate>
          </Video>
          <Audio/>
        </StreamingChannel>""", replies=[FAILED, BUSY, FAILED]) == [
            "VideoEncoder[0].Bitrate = 4097", "VideoEncoder[0].Quality = 2", "message 2 encoder: master = 1",
            "Audio.Enable = 0", "message 3 audio",
            "Network.RTSPPort = 8554", "message 37 RTSP port", OK]


@pytest.mark.parametrize("uri, body", [
    pytest.param(CHANNELS + "/1", "<StreamingChannel/>", id="an empty channel"),
    pytest.param(CHANNELS, "<StreamingChannel><Video/></StreamingChannel>", id="one channel for the list"),
])
def test_a_body_that_is_no_update_puts_the_default_port_back(camera, uri, body):
    camera.execute("update Network set RTSPPort=8554")
    assert camera.effects("PUT", uri, body) == ["Network.RTSPPort = 554", "message 37 RTSP port", OK]


@pytest.mark.parametrize("table", ["VideoEncoder", "Audio", "Network"])
def test_a_failing_statement_ends_the_request(camera, table):
    camera.execute(f"create trigger refuse before update on {table} begin select raise(abort, 'no'); end")
    elements = {"VideoEncoder": "<Video/>", "Audio": "<Audio><enabled>x</enabled></Audio>", "Network": ""}
    assert camera.effects("PUT", CHANNELS, f"""
        <StreamingChannelList>
          <StreamingChannel>
            {elements[table]}
            <Transport><rtspPortNo>8554</rtspPortNo></Transport>
          </StreamingChannel>
        </StreamingChannelList>""") == [DEVICE_ERROR]


def test_the_list_is_a_device_error_when_only_its_second_encoder_is_missing(camera):
    camera.execute("update VideoEncoder set Enable=-1 where VideoEncoderID=1")
    assert camera.effects("GET", CHANNELS) == [DEVICE_ERROR]
