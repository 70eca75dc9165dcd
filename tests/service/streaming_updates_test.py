"""Changes of the streaming channels: what is stored, and what the daemons are told at which moment."""
import pytest

CHANNELS = "/PSIA/Streaming/channels"


def test_each_part_takes_effect_as_it_is_met_whatever_the_daemons_reply(camera):
    # The id of the body counts, not that of the URL; MJPEG sets the quality; the port is sent last.
    assert camera.effects("PUT", CHANNELS + "/2", """
        <StreamingChannel>
          <id>1</id>
          <enabled>false</enabled>
          <Transport><rtspPortNo>1</rtspPortNo><rtspPortNo>70000</rtspPortNo></Transport>
          <Video>
            <videoQualityControlType>CBR</videoQualityControlType>
            <videoCodecType>MJPEG</videoCodecType>
          </Video>
          <Audio>
            <enabled>true</enabled>
            <audioCompressionType>G.711alaw</audioCompressionType>
            <audioBitRate>32</audioBitRate>
          </Audio>
        </StreamingChannel>
        """, replies=[2, 1, 2]) == [
            "VideoEncoder[0].Enable = 0", "VideoEncoder[0].Codec = 0", "VideoEncoder[0].Resolution = 4",
            "VideoEncoder[0].Bitrate = 2048", "VideoEncoder[0].Quality = 2",
            "message 2 encoder: master = 1",
            "Audio.Codec = 1",
            "message 3 audio",
            "Network.RTSPPort = 70000",
            "message 37 RTSP port",
            "status 1"]


def test_channels_of_a_list_keep_what_the_one_before_set(camera):
    assert camera.effects("PUT", CHANNELS, """
        <StreamingChannelList>
          <StreamingChannel>
            <id>Slave-0</id>
            <Video>
              <fixedQuality>100</fixedQuality>
              <videoResolutionWidth>176</videoResolutionWidth>
              <maxFrameRate>1000</maxFrameRate>
            </Video>
          </StreamingChannel>
          <StreamingChannel>
            <enabled>no</enabled>
            <Video>
              <videoResolutionHeight>240</videoResolutionHeight>
              <constantBitRate>300</constantBitRate>
            </Video>
          </StreamingChannel>
        </StreamingChannelList>
        """) == [
            "VideoEncoder[1].Codec = 1", "VideoEncoder[1].Resolution = 3", "VideoEncoder[1].Bitrate = 2048",
            "VideoEncoder[1].Quality = 0", "VideoEncoder[1].Framerate = 10",
            "message 2 encoder: master = 0",
            "VideoEncoder[1].Enable = 0", "VideoEncoder[1].Resolution = 2", "VideoEncoder[1].Bitrate = 300",
            "message 2 encoder: master = 0",
            "status 1"]


@pytest.mark.parametrize("table, effects", [
    ("VideoEncoder", []),
    ("Audio", ["VideoEncoder[0].Resolution = 4", "VideoEncoder[0].Bitrate = 2048",
               "VideoEncoder[0].Quality = 2", "message 2 encoder: master = 1"]),
])
def test_a_failing_statement_ends_the_request_and_keeps_what_was_done(camera, table, effects):
    camera.execute(f"create trigger refuse before update on {table} begin select raise(abort, 'no'); end")
    assert camera.effects("PUT", CHANNELS + "/1", """
        <StreamingChannel>
          <id>1</id>
          <Transport><rtspPortNo>7</rtspPortNo></Transport>
          <Video><videoQualityControlType>CBR</videoQualityControlType></Video>
          <Audio><enabled>false</enabled></Audio>
        </StreamingChannel>
        """) == [*effects, "status 3"]
