"""What the streaming documents make of the stored values."""
import pytest

LIST = "/PSIA/Streaming/channels"
MASTER = LIST + "/1"
SLAVE = LIST + "/2"


@pytest.mark.parametrize("identifier, name", [
    ("10", "Master stream"), ("master-01", "Master stream"), ("Master-", "Slave stream"),
])
def test_every_identifier_chooses_one_of_the_streams(camera, identifier, name):
    for suffix in ("", "/CAPABILITIES"):
        assert camera.shown(f"{LIST}/{identifier}{suffix}", "channelName") == [name]


@pytest.mark.parametrize("values, element, text", [
    ("Quality=0", "fixedQuality", "100"),
    ("Quality=4", "fixedQuality", "0"),
    ("Quality=-1", "fixedQuality", "50"),
    ("QualityType=-1", "videoQualityControlType", "VBR"),
    ("GOPSize=7, Framerate=10", "keyFrameInterval", "699"),  # in single precision
    ("GOPSize=15, Framerate=0", "keyFrameInterval", "2147483647"),
])
def test_video_values(camera, values, element, text):
    camera.execute("update VideoEncoder set " + values)
    assert camera.shown(SLAVE, element) == [text]


@pytest.mark.parametrize("codec, compression, rate", [
    (1, "G.711alaw", "64"), (2, "G.726", "24"), (3, "G.726", "32"), (4, "G.711", "64")])
def test_audio_values(camera, codec, compression, rate):
    camera.execute(f"update Audio set Codec={codec}")
    assert camera.shown(SLAVE, "audioCompressionType") == [compression]
    assert camera.shown(SLAVE, "audioBitRate") == [rate]


def test_without_a_row_the_rtsp_port_is_554(camera):
    camera.execute("delete from Network")
    assert camera.shown(SLAVE, "rtspPortNo") == ["554"]


@pytest.mark.parametrize("codec, listed", [(1, "MJPEG"), (-2, "H.264")])
def test_the_list_has_a_sense_of_its_own_for_the_codec_of_the_slave_stream(camera, codec, listed):
    camera.execute(f"update VideoEncoder set Codec={codec}")
    assert camera.shown(SLAVE, "videoCodecType") == ["H.264"]
    assert camera.shown(LIST, "videoCodecType") == ["H.264", listed]


# On is 1, for the list any number but 0. The capabilities find the row by its id, the others by its type.
@pytest.mark.parametrize("change, listed, channel, capabilities", [
    ("Enable=2", "true", "false", "false"),
    ("Type=1", "false", "false", "true"),
    ("AudioID=3", "true", "true", "false"),
])
def test_audio_is_enabled(camera, change, listed, channel, capabilities):
    camera.execute("update Audio set " + change)
    assert camera.shown(LIST, "enabled")[3] == listed
    assert camera.shown(MASTER, "enabled")[3] == channel
    assert camera.shown(MASTER + "/capabilities", "enabled")[3] == capabilities


def test_video_is_enabled_by_1_alone(camera):
    camera.execute("update VideoEncoder set Enable=2")
    assert camera.shown(MASTER, "enabled") == ["false", "true", "false", "true"]


# Spec.VideoResolution: 0x20 for sizes beyond the basic one, 0x200000 for a small sensor. Mode 1 is 4:3.
@pytest.mark.parametrize("bits, mode, code, size, width, widths, height, heights", [
    (0x20, 0, 0, ["1280", "720"], 704, "352,704", 480, "240,480"),
    (0x20, 0, 4, ["1280", "720"], 1280, "1280,1920", 720, "720,1080"),
    (0x20, 1, 6, ["1280", "1024"], 1280, "1280,2040", 1024, "1024,1536"),
    (0x200000, 1, 4, ["1280", "1024"], 1280, "1280", 1024, "1024"),
    (0x20, 1, 5, ["2040", "1536"], 2040, "1280,2040", 1536, "1024,1536"),
    (0x200020, 1, 5, ["1920", "1080"], 1920, "1280,1920", 1080, "720,1080"),
])
def test_sizes(camera, bits, mode, code, size, width, widths, height, heights):
    camera.execute(f"""
        update Spec set VideoResolution={bits};
        update VideoSource set CaptureMode={mode};
        update VideoEncoder set Resolution={code}""")
    assert camera.shown(SLAVE, "videoResolutionWidth") == size[:1]
    assert camera.shown(SLAVE, "videoResolutionHeight") == size[1:]
    assert camera.shown(LIST, "videoResolutionHeight") == [size[1], "480"]
    assert (f'<videoResolutionWidth opt="{widths}">{width}</videoResolutionWidth>'
            f'<videoResolutionHeight opt="{heights}">{height}</videoResolutionHeight>'
            ) in camera.call("GET", MASTER + "/capabilities")


def test_the_smallest_size_is_shown_without_a_choice(camera):
    camera.execute("update VideoEncoder set Resolution=3")
    assert "<videoResolutionWidth>144<" in camera.call("GET", SLAVE + "/capabilities")


def test_without_a_row_the_sensor_is_small_and_not_4_to_3(camera):
    camera.execute("""
        delete from Spec;
        update VideoEncoder set Resolution=5;
        update VideoSource set CaptureMode=1""")
    assert camera.shown(SLAVE, "videoResolutionHeight") == ["1080"]


@pytest.mark.parametrize("statement, uri", [
    ("update VideoEncoder set Enable=-1 where VideoEncoderID=0", LIST),
    ("update VideoEncoder set Enable=-1 where VideoEncoderID=1", SLAVE + "/capabilities"),
    ("delete from Spec", SLAVE + "/capabilities"),
])
def test_a_missing_encoder_or_row_is_a_device_error(camera, statement, uri):
    camera.execute(statement)
    assert camera.effects("GET", uri) == ["status 3"]


def test_without_a_row_an_encoder_has_usual_values(camera):
    camera.execute("delete from VideoEncoder")
    assert camera.shown(MASTER, "fixedQuality") == ["50"]
    assert camera.shown(MASTER, "keyFrameInterval") == ["1000"]
