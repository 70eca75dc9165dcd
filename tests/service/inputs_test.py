"""The audio channel and the video input: one of each, and the daemons' replies are the answers."""
import pytest

AUDIO = "/PSIA/System/Audio/channels/1"
VIDEO = "/PSIA/System/Video/inputs/channels/1"


def test_audio_is_enabled_by_any_number_but_0(camera):
    camera.execute("update Audio set Enable=2")
    assert camera.shown(AUDIO, "enabled") == ["true"]
    camera.execute("update Audio set AudioID=1")
    assert camera.shown(AUDIO, "enabled") == ["false"]


@pytest.mark.parametrize("elements, stored, reply, code", [
    ("<enabled>True</enabled>", 1, 0, 1),
    ("<enabled>true</enabled><enabled> true</enabled>", 0, 1, 2),
    ("<id>1</id>", 0, -1, 3),
])
def test_audio_is_switched_on_by_true_alone(camera, elements, stored, reply, code):
    camera.execute("update Audio set Enable=7")
    assert camera.effects("PUT", AUDIO, f"<AudioChannel>{elements}</AudioChannel>", [reply]) == [
        f"Audio.Enable = {stored}", "message 3 audio", f"status {code}"]


@pytest.mark.parametrize("statement, frequency, brightness", [
    ("update VideoSource set PowerLineFrequency=0, Brightness=-3", "60hz", "-3"),
    ("update VideoSource set VideoSourceID=1", "50hz", "50"),
])
def test_the_video_input_shows_row_0(camera, statement, frequency, brightness):
    camera.execute(statement)
    assert camera.shown(VIDEO, "powerLineFrequencyMode") == [frequency]
    assert camera.shown(VIDEO, "brightnessLevel") == [brightness]


@pytest.mark.parametrize("elements, effects", [
    # 127 characters of a number count, and levels that are not named become 0.
    ("<id>1</id><hueLevel>9</hueLevel><hueLevel>" + " " * 126 + "41</hueLevel>",
     ["VideoSource[1].Brightness = 0", "VideoSource[1].Contrast = 0", "VideoSource[1].Hue = 4",
      "message 1 picture: source = 1", "status 2"]),
    ("<brightnessLevel>21</brightnessLevel>", ["message 1 picture: source = -1", "status 2"]),
])
def test_the_body_names_the_row_of_the_video_input(camera, elements, effects):
    camera.execute("insert into VideoSource values (1, 11, 12, 13, 1, 0)")
    assert camera.effects("PUT", VIDEO, f"<VideoInputChannel>{elements}</VideoInputChannel>", [1]) == effects
