"""Changes of the streaming channels: what is stored, and what the daemons are told at which moment."""
import pytest

from answers import DEVICE_ERROR, OK
from camera import REQUESTS
from simulator.messages import BUSY, FAILED

CHANNELS = "/PSIA/Streaming/channels"


def test_each_part_takes_effect_as_it_is_met_whatever_the_daemons_reply(camera):
    # The id of the body counts, not that of the URL. MJPEG makes the bit rate variable, with the quality 2.
    assert camera.effects("PUT", CHANNELS + "/2", """
        <StreamingChannel>
          <id>MASTER-0</id>
          <enabled>false</enabled>
          <Transport><rtspPortNo>70000</rtspPortNo></Transport>
          <Video>
            <fixedQuality>100</fixedQuality>
            <videoCodecType>MJPEG</videoCodecType>
            <videoQualityControlType>CBR</videoQualityControlType>
          </Video>
          <Audio>
            <enabled>true</enabled>
            <audioCompressionType>G.711alaw</audioCompressionType>
          </Audio>
        </StreamingChannel>
        """, replies=[FAILED, BUSY, FAILED]) == [
            "VideoEncoder[0].Enable = 0", "VideoEncoder[0].Codec = 0", "VideoEncoder[0].Resolution = 4",
            "VideoEncoder[0].QualityType = 1", "VideoEncoder[0].Bitrate = 2048",
            "VideoEncoder[0].Quality = 2",
            "message 2 encoder: master = 1",
            "Audio.Codec = 1",
            "message 3 audio",
            "Network.RTSPPort = 70000",
            "message 37 RTSP port",
            OK]


def stored_after(camera, columns, video, channel=1):
    """The columns of the encoder after an update of its channel with these elements of Video."""
    REQUESTS.remove()  # so no daemon's reply is awaited
    camera.call("PUT", CHANNELS + "/1", f"""
        <StreamingChannel>
          <id>{channel}</id>
          <Video>{video}</Video>
        </StreamingChannel>""")
    [values] = camera.rows(f"select {columns} from VideoEncoder where VideoEncoderID={channel - 1}")
    return values


@pytest.mark.parametrize("codec, control, stored", [
    ("mjpeg", "CBR", (0, 1)),
    ("H.264", "CBR", (1, 0)),
    ("MPEG4", "vbr", (1, 1)),
    ("H.264", "other", (1, 0)),
])
def test_codec_and_quality_control_are_stored(camera, codec, control, stored):
    assert stored_after(camera, "Codec, QualityType", f"""
        <videoQualityControlType>VBR</videoQualityControlType>
        <videoCodecType>{codec}</videoCodecType>
        <videoQualityControlType>{control}</videoQualityControlType>""") == stored


@pytest.mark.parametrize("percentage, level", [
    (-1, 3), (0, 4), (1, 3), (25, 3), (26, 2), (50, 2), (51, 1), (75, 1), (76, 2), (99, 2), (100, 0),
    (101, 2),
])
def test_a_percentage_is_stored_as_one_of_five_levels(camera, percentage, level):
    assert stored_after(camera, "Quality", f"<fixedQuality>{percentage}</fixedQuality>") == (level,)


@pytest.mark.parametrize("hundredths, stored", [(1599, 15), (100, 1), (99, 0), (-199, -1)])
def test_the_frame_rate_is_stored_in_whole_frames(camera, hundredths, stored):
    assert stored_after(camera, "Framerate", f"<maxFrameRate>{hundredths}</maxFrameRate>") == (stored,)


@pytest.mark.parametrize("channel, element, pixels, code", [
    (1, "videoResolutionWidth", 2040, 5),
    (1, "videoResolutionHeight", 1536, 5),
    (2, "videoResolutionHeight", 144, 3),
    (2, "videoResolutionHeight", 240, 1),
])
def test_one_dimension_selects_the_size_code(camera, channel, element, pixels, code):
    assert stored_after(camera, "Resolution", f"<{element}>{pixels}</{element}>", channel) == (code,)


@pytest.mark.parametrize("compression, bit_rate, codec", [("g.726", 64, 2), ("G.726", 32, 3), ("MP3", 32, 0)])
def test_audio_is_switched_off_unless_it_says_true(camera, compression, bit_rate, codec):
    camera.execute("update Audio set Codec=9")
    assert camera.effects("PUT", CHANNELS + "/1", f"""
        <StreamingChannel><Audio>
          <audioCompressionType>{compression}</audioCompressionType>
          <audioBitRate>{bit_rate}</audioBitRate>
        </Audio></StreamingChannel>""") == [
            "Audio.Enable = 0", f"Audio.Codec = {codec}", "message 3 audio", OK]


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
