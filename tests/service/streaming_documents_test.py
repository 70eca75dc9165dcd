"""What the streaming documents make of rows that differ or are missing. docs/reference/media.md shows what
they make of other stored values."""
import pytest

from answers import DEVICE_ERROR

LIST = "/PSIA/Streaming/channels"
MASTER = LIST + "/1"
SLAVE = LIST + "/2"
AUDIO = "/PSIA/System/Audio/channels/1"


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


# An encoder that does not exist is stored with -1.
NO_SLAVE = "update VideoEncoder set Enable=-1 where VideoEncoderID=1"


@pytest.mark.parametrize("statement, uri", [
    pytest.param(NO_SLAVE, LIST, id="list without the second"),
    pytest.param(NO_SLAVE, SLAVE, id="channel"),
    pytest.param("delete from Spec", SLAVE + "/capabilities", id="capabilities without the sensor"),
])
def test_an_encoder_or_a_row_that_is_not_there_is_a_device_error(camera, statement, uri):
    camera.execute(statement)
    assert camera.effects("GET", uri) == [DEVICE_ERROR]


def test_without_rows_usual_values_are_shown(camera):
    camera.execute("delete from Network; delete from VideoEncoder")
    assert camera.shown(MASTER, "rtspPortNo") == ["554"]
    assert camera.shown(MASTER, "fixedQuality") == ["50"]
    assert camera.shown(MASTER, "keyFrameInterval") == ["1000"]  # 15 frames, 15 a second


def test_without_a_row_the_sensor_is_small(camera):
    camera.execute("update VideoSource set CaptureMode=1; delete from Spec")
    assert camera.shown(MASTER, "videoResolutionHeight") == ["1080"]


def test_without_viewers_the_list_of_sessions_is_empty(camera):
    camera.execute("delete from ClientList")
    assert camera.shown("/PSIA/Streaming/status", "totalStreamingSessions") == ["0"]
    camera.execute("drop table ClientList")
    assert camera.effects("GET", "/PSIA/Streaming/status") == [DEVICE_ERROR]
