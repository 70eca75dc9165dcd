"""The streams of a camera with --video, as ffprobe and ffmpeg see them over RTSP."""
import base64
import json
import shutil
import socket
import subprocess

import pytest

from simulator.testing import eventually

NEEDS = "import gi; gi.require_version('GstRtspServer', '1.0'); from gi.repository import GstRtspServer"
HAS_GSTREAMER = subprocess.run(["/usr/bin/python3", "-c", NEEDS], capture_output=True).returncode == 0
if not shutil.which("ffprobe") or not HAS_GSTREAMER:
    print("skipped: GStreamer's RTSP server or ffprobe is not installed")
    pytest.skip("no GStreamer", allow_module_level=True)


OPTIONS = ["--video", "--video-port", "0", "--boot", "3",
           "--set", "insert into User values ('nobody', 'nobody', 4)"]


def ffprobe(camera, stream, *options, user="admin:admin"):
    """What it tells; its error message where there is no stream."""
    told = subprocess.run(["ffprobe", "-v", "error", "-of", "json", "-rtsp_transport", "tcp", *options,
                           camera.stream_url(stream, user)], capture_output=True, text=True, timeout=60)
    return json.loads(told.stdout) if told.returncode == 0 else told.stderr


def found(camera, stream, user="admin:admin"):
    """The codec, size and rate of the video and the codec of the audio; ffprobe's error message."""
    told = ffprobe(camera, stream, "-show_streams", user=user)
    if isinstance(told, str):
        return told
    video, *audio = sorted(told["streams"], key=lambda one: one["codec_type"] == "audio")
    rate = video["r_frame_rate"].removesuffix("/1")
    words = [video["codec_name"], f"{video['width']}x{video['height']}", rate]
    return " ".join(words + [one["codec_name"] for one in audio])


def put_stream(camera, channel, video, audio="", enabled="true"):
    answer = camera.put(f"/PSIA/Streaming/channels/{channel}", f"<StreamingChannel><id>{channel}</id>"
                        f"<enabled>{enabled}</enabled><Video>{video}</Video>{audio}</StreamingChannel>")
    assert "<statusCode>1<" in answer


@pytest.fixture
def watch(request):
    """Starts clients, which are processes, and waits until the camera lists each."""
    def start(camera, stream, transport="tcp"):
        client = subprocess.Popen(["ffmpeg", "-v", "quiet", "-rtsp_transport", transport, "-i",
                                   camera.stream_url(stream), "-f", "null", "-"], stdin=subprocess.DEVNULL)
        request.addfinalizer(client.kill)
        status = f"/PSIA/Streaming/channels/{stream}/status"
        eventually(lambda: "127.0.0.1" in camera.get(status), "the viewer")
        return client
    return start


def test_both_streams_of_the_factory(camera):
    assert found(camera, "Master-0") == "h264 1920x1080 30 pcm_mulaw"
    assert found(camera, "Slave-0") == "mjpeg 352x240 15 pcm_mulaw"


# The smallest size of the Slave stream. A rate is in hundredths: 10 and 5 frames a second.
SMALL = ("<videoResolutionWidth>704</videoResolutionWidth><videoResolutionHeight>240</videoResolutionHeight>"
         "<maxFrameRate>1000</maxFrameRate>")


MJPEG = ("<videoCodecType>MJPEG</videoCodecType><videoResolutionHeight>720</videoResolutionHeight>"
         "<maxFrameRate>500</maxFrameRate>")
G726 = "<Audio><enabled>true</enabled><audioCompressionType>G.726</audioCompressionType></Audio>"
NO_AUDIO = "<Audio><enabled>false</enabled></Audio>"


@pytest.mark.parametrize("channel, stream, video, audio, expected", [
    pytest.param(1, "Master-0", MJPEG, "", "mjpeg 1280x720 5 pcm_mulaw", id="video, the factory's audio"),
    pytest.param(2, "Slave-0", SMALL, G726, "h264 704x240 10 adpcm_g726le", id="codec of the audio"),
    pytest.param(2, "Slave-0", SMALL, NO_AUDIO, "h264 704x240 10", id="no audio"),
])
def test_a_stream_is_what_a_client_has_set(camera, channel, stream, video, audio, expected):
    put_stream(camera, channel, video, audio)
    assert found(camera, stream) == expected


@pytest.mark.parametrize("kilobits", [256, 2048])
def test_the_bit_rate_and_the_distance_of_key_frames_are_those_of_the_settings(camera, kilobits):
    frames_a_second, frames_from_key_to_key = 10, 15  # of SMALL, and of the factory state
    constant = "<videoCodecType>H.264</videoCodecType><videoQualityControlType>CBR</videoQualityControlType>"
    put_stream(camera, 2, f"{constant}<constantBitRate>{kilobits}</constantBitRate>{SMALL}")
    first_60 = ["-show_packets", "-select_streams", "v", "-read_intervals", "%+#60"]
    packets = ffprobe(camera, "Slave-0", *first_60)["packets"]
    keys = [number for number, packet in enumerate(packets) if "K" in packet["flags"]]
    assert {after - before for before, after in zip(keys, keys[1:])} == {frames_from_key_to_key}
    later = packets[frames_from_key_to_key:]  # when the coder has settled
    sent = sum(int(packet["size"]) for packet in later) * 8 / 1000  # kilobits
    assert kilobits / 2 < sent / (len(later) / frames_a_second) < kilobits * 1.5


def brightness(camera):
    """The mean of all colours of a picture."""
    one_picture = ["-frames:v", "1", "-f", "rawvideo", "-pix_fmt", "rgb24", "-"]
    url = camera.stream_url("Slave-0")
    picture = subprocess.run(["ffmpeg", "-v", "quiet", "-rtsp_transport", "tcp", "-i", url, *one_picture],
                             capture_output=True, check=True, timeout=60).stdout
    return sum(picture) / len(picture)


def test_a_change_of_brightness_reaches_a_viewer_without_a_new_session(camera, watch):
    client = watch(camera, "Slave-0")
    before = brightness(camera)
    levels = "<brightnessLevel>10</brightnessLevel><contrastLevel>50</contrastLevel><hueLevel>50</hueLevel>"
    channel = f"<VideoInputChannel><id>0</id>{levels}</VideoInputChannel>"
    camera.put("/PSIA/System/Video/inputs/channels/1", channel)
    assert brightness(camera) < before - 50  # of 255
    assert client.poll() is None


def test_only_accounts_of_the_camera_may_watch(camera):
    for refused in "admin:wrong", "nobody:nobody", ":":
        assert "401" in found(camera, "Slave-0", user=refused)
    assert found(camera, "Slave-0", user="anonymous:").startswith("mjpeg")
    assert "401" in found(camera, "Slave-0", user="bob:secret")
    bob = "<User><userName>bob</userName><password>secret</password></User>"
    camera.put("/PSIA/Security/AAA/users", bob, "POST")
    assert found(camera, "Slave-0", user="bob:secret").startswith("mjpeg")
    # ffprobe has used Digest so far.
    with socket.create_connection(("127.0.0.1", camera.now()["videoPort"])) as connection:
        connection.sendall(b"DESCRIBE %s RTSP/1.0\r\nCSeq: 1\r\nAuthorization: Basic %s\r\n\r\n"
                           % (camera.stream_url("Slave-0").encode(), base64.b64encode(b"guest:guest")))
        assert connection.recv(100).startswith(b"RTSP/1.0 200 OK")


@pytest.mark.parametrize("transport", ["tcp", "udp"])
def test_a_viewer_is_listed_as_long_as_it_watches(camera, watch, transport):
    client = watch(camera, "Slave-0", transport)
    assert "<totalStreamingSessions>1<" in camera.get("/PSIA/Streaming/status")
    client.kill()
    eventually(lambda: "<totalStreamingSessions>0<" in camera.get("/PSIA/Streaming/status"), "no viewer")


def test_a_change_ends_the_sessions_of_its_stream_alone(camera, watch):
    master, slave = watch(camera, "Master-0"), watch(camera, "Slave-0")
    put_stream(camera, 2, SMALL)
    slave.wait(20)
    assert master.poll() is None
    assert camera.log(contains="answer: done (Slave-0: H.264 704x240, 10 frames a second)", wait=10)
    put_stream(camera, 1, "", enabled="false")
    master.wait(20)
    assert "404" in found(camera, "Master-0")


def test_streams_end_with_a_reboot_and_come_back(camera, watch):
    client = watch(camera, "Slave-0")
    camera.put("/PSIA/System/reboot")
    client.wait(20)
    assert not camera.log(contains="the camera boots"), "the sessions end with the outage, not with the boot"
    eventually(lambda: camera.now()["up"] and camera.get("/PSIA/System/status"), "the boot")
    assert "<totalStreamingSessions>0<" in camera.get("/PSIA/Streaming/status")
    assert found(camera, "Slave-0") == "mjpeg 352x240 15 pcm_mulaw"
