"""What the streaming documents make of the stored values."""
import pytest

from answers import DEVICE_ERROR

LIST = "/PSIA/Streaming/channels"
MASTER = LIST + "/1"
SLAVE = LIST + "/2"
AUDIO = "/PSIA/System/Audio/channels/1"

SENSORS = {"larger sizes": 0x20, "small sensor": 0x200000}  # Spec.VideoResolution
PICTURES = {"wide": 0, "4:3": 1}  # VideoSource.CaptureMode


def store_size(camera, sensor, picture, code):
    camera.execute(f"""
        update Spec set VideoResolution={SENSORS[sensor]};
        update VideoSource set CaptureMode={PICTURES[picture]};
        update VideoEncoder set Resolution={code}""")


@pytest.mark.parametrize("suffix", ["", "/CAPABILITIES"])
@pytest.mark.parametrize("identifier, name", [
    pytest.param("10", "Master stream", id="begins with 1"),
    pytest.param("master-01", "Master stream", id="begins with Master-0"),
    pytest.param("Master-", "Slave stream", id="anything else"),
])
def test_every_identifier_selects_one_of_the_streams(camera, identifier, suffix, name):
    assert camera.shown(f"{LIST}/{identifier}{suffix}", "channelName") == [name]


@pytest.mark.parametrize("stored, percentage", [("0", "100"), ("4", "0"), ("5", "50"), ("-1", "50")])
def test_the_stored_quality_is_shown_as_a_percentage(camera, stored, percentage):
    camera.execute("update VideoEncoder set Quality=" + stored)
    assert camera.shown(SLAVE, "fixedQuality") == [percentage]


def test_the_bit_rate_is_constant_with_type_0_only(camera):
    camera.execute("update VideoEncoder set QualityType=-1")
    assert camera.shown(SLAVE, "videoQualityControlType") == ["VBR"]
    camera.execute("update VideoEncoder set QualityType=0")
    assert camera.shown(SLAVE, "videoQualityControlType") == ["CBR"]


@pytest.mark.parametrize("frames, rate, milliseconds", [
    pytest.param(15, 30, "500", id="half a second"),
    pytest.param(7, 10, "699", id="in single precision 0.7 s are a bit less"),
    pytest.param(15, 0, "2147483647", id="without frames never"),
])
def test_the_key_frame_interval_is_shown_in_milliseconds(camera, frames, rate, milliseconds):
    camera.execute(f"update VideoEncoder set GOPSize={frames}, Framerate={rate}")
    assert camera.shown(SLAVE, "keyFrameInterval") == [milliseconds]


@pytest.mark.parametrize("codec, compression, rate", [
    (1, "G.711alaw", "64"), (2, "G.726", "24"), (3, "G.726", "32"), (4, "G.711", "64")])
def test_the_audio_codec_is_shown_with_its_rate(camera, codec, compression, rate):
    camera.execute(f"update Audio set Codec={codec}")
    assert camera.shown(SLAVE, "audioCompressionType") == [compression]
    assert camera.shown(SLAVE, "audioBitRate") == [rate]


def test_without_a_row_the_rtsp_port_is_554(camera):
    camera.execute("delete from Network")
    assert camera.shown(SLAVE, "rtspPortNo") == ["554"]


@pytest.mark.parametrize("codec, listed", [(1, "MJPEG"), (-2, "H.264")])
def test_the_list_reverses_the_codec_of_the_slave_stream(camera, codec, listed):
    camera.execute(f"update VideoEncoder set Codec={codec}")
    assert camera.shown(SLAVE, "videoCodecType") == ["H.264"]
    assert camera.shown(LIST, "videoCodecType") == ["H.264", listed]


# On is 1, for the list and the audio channel any number but 0. They look for the row whose Type or whose
# AudioID is 0.
@pytest.mark.parametrize("change, in_list, in_channel, in_capabilities, in_audio", [
    pytest.param("Enable=2", "true", "false", "false", "true", id="on is 2"),
    pytest.param("Type=1", "false", "false", "true", "true", id="no row of the type 0"),
    pytest.param("AudioID=3", "true", "true", "false", "false", id="no row with the id 0"),
])
def test_each_document_finds_audio_on_in_its_own_way(
        camera, change, in_list, in_channel, in_capabilities, in_audio):
    def audio_enabled(uri):
        channel, transport, video, audio = camera.shown(uri, "enabled")[:4]
        return audio
    camera.execute("update Audio set " + change)
    assert audio_enabled(LIST) == in_list
    assert audio_enabled(MASTER) == in_channel
    assert audio_enabled(MASTER + "/capabilities") == in_capabilities
    assert camera.shown(AUDIO, "enabled") == [in_audio]


def test_video_is_enabled_by_1_alone(camera):
    camera.execute("update VideoEncoder set Enable=2")
    channel, transport, video, audio = camera.shown(MASTER, "enabled")
    assert (channel, video) == ("false", "false")


@pytest.mark.parametrize("sensor, picture, code, width, height", [
    ("larger sizes", "wide", 4, "1280", "720"),
    ("larger sizes", "wide", 5, "1920", "1080"),
    ("larger sizes", "4:3", 4, "1280", "1024"),
    ("larger sizes", "4:3", 5, "2040", "1536"),
    ("small sensor", "4:3", 4, "1280", "1024"),
    ("small sensor", "4:3", 5, "1920", "1080"),  # the only sensor without 2040 x 1536
    ("larger sizes", "wide", 0, "1280", "720"),  # every code but 5 is shown like 4
])
def test_a_size_code_is_shown_as_pixels(camera, sensor, picture, code, width, height):
    store_size(camera, sensor, picture, code)
    assert camera.shown(MASTER, "videoResolutionWidth") == [width]
    assert camera.shown(MASTER, "videoResolutionHeight") == [height]


@pytest.mark.parametrize("code, size", [
    (2, ["352", "240"]), (0, ["704", "480"]), (5, ["704", "480"])])
def test_the_list_shows_the_slave_stream_in_small_sizes(camera, code, size):
    camera.execute(f"update VideoEncoder set Resolution={code}")
    master_width, slave_width = camera.shown(LIST, "videoResolutionWidth")
    master_height, slave_height = camera.shown(LIST, "videoResolutionHeight")
    assert [slave_width, slave_height] == size


@pytest.mark.parametrize("sensor, picture, code, width, height", [
    ("larger sizes", "wide", 0, ' opt="352,704">704', ' opt="240,480">480'),
    ("larger sizes", "wide", 1, ' opt="352,704">704', ' opt="240,480">240'),
    ("larger sizes", "wide", 2, ' opt="352,704">352', ' opt="240,480">240'),
    ("larger sizes", "wide", 3, ">144", ">112"),
    ("larger sizes", "wide", 4, ' opt="1280,1920">1280', ' opt="720,1080">720'),
    ("small sensor", "wide", 4, ' opt="1280">1280', ' opt="720">720'),
    ("larger sizes", "wide", 5, ' opt="1280,1920">1920', ' opt="720,1080">1080'),
    ("larger sizes", "4:3", 6, ' opt="1280,2040">1280', ' opt="1024,1536">1024'),
    ("small sensor", "4:3", 4, ' opt="1280">1280', ' opt="1024">1024'),
    ("larger sizes", "4:3", 5, ' opt="1280,2040">2040', ' opt="1024,1536">1536'),
])
def test_the_capabilities_show_a_size_code_with_the_choices(camera, sensor, picture, code, width, height):
    store_size(camera, sensor, picture, code)
    assert (f"<videoResolutionWidth{width}</videoResolutionWidth>"
            f"<videoResolutionHeight{height}</videoResolutionHeight>"
            ) in camera.call("GET", MASTER + "/capabilities")


def test_without_a_row_the_sensor_is_small(camera):
    store_size(camera, "larger sizes", "4:3", code=5)
    camera.execute("delete from Spec")
    assert camera.shown(SLAVE, "videoResolutionHeight") == ["1080"]


# An encoder that does not exist is stored with -1.
NO_MASTER = "update VideoEncoder set Enable=-1 where VideoEncoderID=0"
NO_SLAVE = "update VideoEncoder set Enable=-1 where VideoEncoderID=1"


@pytest.mark.parametrize("statement, uri", [
    pytest.param(NO_MASTER, LIST, id="list"),
    pytest.param(NO_SLAVE, LIST, id="list without the second"),
    pytest.param(NO_SLAVE, SLAVE, id="channel"),
    pytest.param(NO_SLAVE, SLAVE + "/capabilities", id="capabilities"),
    pytest.param("delete from Spec", SLAVE + "/capabilities", id="capabilities without the sensor"),
])
def test_an_encoder_or_a_row_that_is_not_there_is_a_device_error(camera, statement, uri):
    camera.execute(statement)
    assert camera.effects("GET", uri) == [DEVICE_ERROR]


def test_without_a_row_an_encoder_has_usual_values(camera):
    camera.execute("delete from VideoEncoder")
    assert camera.shown(MASTER, "fixedQuality") == ["50"]
    assert camera.shown(MASTER, "keyFrameInterval") == ["1000"]  # 15 frames, 15 a second
