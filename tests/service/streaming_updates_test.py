"""Changes of the streaming channels: what is stored, and what the daemons are told at which moment."""
import pytest

CHANNELS = "/PSIA/Streaming/channels"


def test_each_part_takes_effect_as_it_is_met_whatever_the_daemons_reply(camera):
    # The id of the body counts, not that of the URL; MJPEG sets the quality; the port is sent last.
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
        """, replies=[2, 1, 2]) == [
            "VideoEncoder[0].Enable = 0", "VideoEncoder[0].Codec = 0", "VideoEncoder[0].Resolution = 4",
            "VideoEncoder[0].QualityType = 1", "VideoEncoder[0].Bitrate = 2048",
            "VideoEncoder[0].Quality = 2",
            "message 2 encoder: master = 1",
            "Audio.Codec = 1",
            "message 3 audio",
            "Network.RTSPPort = 70000",
            "message 37 RTSP port",
            "status 1"]


def test_channels_of_a_list_keep_what_the_one_before_set(camera):
    # The second entry is of channel 2 as well: its id and enabled come too late, behind its Video.
    assert camera.effects("PUT", CHANNELS, """
        <StreamingChannelList>
          <StreamingChannel>
            <id>Slave-0</id>
            <Video><videoResolutionWidth>176</videoResolutionWidth></Video>
          </StreamingChannel>
          <Other><Video></Video></Other>
          <StreamingChannel>
            <Video><videoResolutionHeight>240</videoResolutionHeight></Video>
            <id>1</id>
            <enabled>no</enabled>
          </StreamingChannel>
        </StreamingChannelList>
        """) == ["VideoEncoder[1].Codec = 1", "VideoEncoder[1].Resolution = 3",
                 "VideoEncoder[1].Bitrate = 2048", "VideoEncoder[1].Framerate = 30",
                 "message 2 encoder: master = 0",
                 "VideoEncoder[1].Resolution = 2", "message 2 encoder: master = 0", "status 1"]


# Without an id it is the Master stream, with the size code 0.
@pytest.mark.parametrize("codec, control, percentage, rate, stored", [
    ("MPEG4", "vbr", 0, 1599, (1, 0, 1, 4, 15)),
    ("H.264", "other", -5, -199, (1, 0, 0, 3, -1)),
    ("mjpeg", "CBR", 25, 99, (0, 0, 1, 3, 0)),
    ("mjpeg", "CBR", 26, 100, (0, 0, 1, 2, 1)),
    ("mjpeg", "CBR", 51, 100, (0, 0, 1, 1, 1)),
    ("mjpeg", "CBR", 76, 100, (0, 0, 1, 2, 1)),
])
def test_codec_quality_and_frame_rate(camera, codec, control, percentage, rate, stored):
    camera.effects("PUT", CHANNELS + "/1", f"""
        <StreamingChannel><Video>
          <videoQualityControlType>CBR</videoQualityControlType>
          <videoCodecType>{codec}</videoCodecType>
          <videoQualityControlType>{control}</videoQualityControlType>
          <fixedQuality>{percentage}</fixedQuality>
          <maxFrameRate>{rate}</maxFrameRate>
        </Video></StreamingChannel>""")
    assert camera.rows("""select Codec, Resolution, QualityType, Quality, Framerate
                          from VideoEncoder where VideoEncoderID=0""") == [stored]


@pytest.mark.parametrize("channel, element, lines, code", [
    (1, "videoResolutionWidth", 2040, 5),
    (1, "videoResolutionHeight", 1080, 5),
    (1, "videoResolutionHeight", 1536, 5),
    (2, "videoResolutionWidth", 352, 2),
    (2, "videoResolutionWidth", 704, 0),
    (2, "videoResolutionHeight", 112, 3),
    (2, "videoResolutionHeight", 144, 3),
    (2, "videoResolutionHeight", 240, 1),
    (2, "videoResolutionHeight", 288, 1),
])
def test_sizes(camera, channel, element, lines, code):
    camera.effects("PUT", CHANNELS + "/1", f"""
        <StreamingChannel>
          <id>{channel}</id>
          <Video><{element}>{lines}</{element}></Video>
        </StreamingChannel>""")
    assert camera.rows("select Resolution from VideoEncoder")[channel - 1] == (code,)


@pytest.mark.parametrize("compression, bit_rate, codec", [
    ("G.711ulaw", 32, 0), ("g.726", 64, 2), ("G.726", 32, 3), ("MP3", 32, 0)])
def test_audio_is_switched_off_unless_it_says_true(camera, compression, bit_rate, codec):
    camera.execute("update Audio set Codec=9")
    assert camera.effects("PUT", CHANNELS + "/1", f"""
        <StreamingChannel><Audio>
          <audioCompressionType>{compression}</audioCompressionType>
          <audioBitRate>{bit_rate}</audioBitRate>
        </Audio></StreamingChannel>
        """) == ["Audio.Enable = 0", f"Audio.Codec = {codec}", "message 3 audio", "status 1"]


@pytest.mark.parametrize("uri, body", [
    (CHANNELS + "/1", "<StreamingChannel/>"),
    (CHANNELS, "<StreamingChannel><Video/></StreamingChannel>"),
])
def test_a_body_that_is_no_update_puts_the_default_port_back(camera, uri, body):
    camera.execute("update Network set RTSPPort=8554")
    assert camera.effects("PUT", uri, body) == ["Network.RTSPPort = 554", "message 37 RTSP port", "status 1"]


@pytest.mark.parametrize("table, element", [
    ("VideoEncoder", "<Video><constantBitRate>1</constantBitRate></Video>"),
    ("Network", ""),
])
def test_a_failing_statement_ends_the_request(camera, table, element):
    camera.execute(f"create trigger refuse before update on {table} begin select raise(abort, 'no'); end")
    assert camera.effects("PUT", CHANNELS, f"""
        <StreamingChannelList>
          <StreamingChannel>{element}<Transport><rtspPortNo>7</rtspPortNo></Transport></StreamingChannel>
        </StreamingChannelList>""") == ["status 3"]
