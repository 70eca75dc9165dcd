"""The audio channel and the video input: one of each, and the daemons' replies are the answers."""
import pytest

from answers import DEVICE_BUSY, DEVICE_ERROR, OK
from simulator.messages import BUSY, DONE

AUDIO = "/PSIA/System/Audio/channels/1"
VIDEO = "/PSIA/System/Video/inputs/channels/1"


@pytest.mark.parametrize("body, stored", [
    pytest.param("<enabled>True</enabled>", 1, id="true in any case"),
    pytest.param("<enabled>true</enabled><enabled> true</enabled>", 0,
                 id="the last counts, and a space matters"),
])
def test_audio_is_switched_on_by_true_alone(camera, body, stored):
    camera.execute("update Audio set Enable=7")
    assert camera.effects("PUT", AUDIO, f"<AudioChannel>{body}</AudioChannel>") == [
        f"Audio.Enable = {stored}", "message 3 audio", OK]


@pytest.mark.parametrize("reply, received", [
    pytest.param(DONE, OK, id="done"),
    pytest.param(BUSY, DEVICE_BUSY, id="busy"),
    pytest.param(-1, DEVICE_ERROR, id="an unknown result is a failure"),
])
def test_the_reply_of_the_daemon_is_the_answer(camera, reply, received):
    assert camera.effects("PUT", AUDIO, "<AudioChannel/>", [reply]) == [
        "Audio.Enable = 0", "message 3 audio", received]


@pytest.mark.parametrize("change, frequency, brightness", [
    pytest.param("PowerLineFrequency=0, Brightness=-3", "60hz", "-3", id="stored"),
    pytest.param("VideoSourceID=1", "50hz", "50", id="no row of this input"),
])
def test_the_video_input_shows_row_0(camera, change, frequency, brightness):
    camera.execute("update VideoSource set " + change)
    assert camera.shown(VIDEO, "powerLineFrequencyMode") == [frequency]
    assert camera.shown(VIDEO, "brightnessLevel") == [brightness]


def test_a_body_with_an_id_sets_all_levels_of_that_input(camera):
    camera.execute("insert into VideoSource (VideoSourceID, Brightness, Hue) values (1, 11, 12)")
    number_of_128_characters = 126 * " " + "41"  # 127 of them count
    assert camera.effects("PUT", VIDEO, f"""
        <VideoInputChannel>
          <id>1</id>
          <hueLevel>9</hueLevel>
          <hueLevel>{number_of_128_characters}</hueLevel>
        </VideoInputChannel>""", [BUSY]) == [
            "VideoSource[1].Brightness = 0", "VideoSource[1].Contrast = 0", "VideoSource[1].Hue = 4",
            "message 1 picture: source = 1", DEVICE_BUSY]
