"""The settings as a file that clients download and upload."""
import subprocess

import pytest

from answers import DEVICE_ERROR, OK, answer
from camera import REPLIES, REQUESTS
from simulator.device import EXCHANGE
from simulator.messages import BUSY, DONE, MAX_PAYLOAD, reply

CONFIGURATION = "/PSIA/System/configurationData"
UPLOADED = EXCHANGE / "psia_config.dat"
PIECE = 1024  # bytes that the service copies at once
MOST = 64 << 20  # bytes that an upload may have
# A settings file of two pieces and a half, of which no two are alike.
SETTINGS = "".join(f"setting {number}\0\n" for number in range(300))[:2 * PIECE + PIECE // 2]


def download(camera, name, result=DONE):
    """The answer when a daemon replies that it exported the settings to the file `name`."""
    request = camera.begin("GET", CONFIGURATION)
    assert REPLIES.send(reply(REQUESTS.next(), result, name.encode()))
    return request.receive()[0]


@pytest.mark.parametrize("size", [1, PIECE, len(SETTINGS)])
def test_an_exported_file_of_any_size_is_sent_whole(camera, size):
    name = "export-%s.dat"  # no format
    (EXCHANGE / name).write_text(SETTINGS[:size])
    assert download(camera, name) == (
        f"Content-Type: application/octet-stream\nContent-length: {size}\n\n{SETTINGS[:size]}")


def test_a_busy_daemon_makes_the_download_fail(camera):
    (EXCHANGE / "export").write_text(SETTINGS)
    assert download(camera, "export", result=BUSY) == answer(CONFIGURATION, DEVICE_ERROR)


@pytest.mark.parametrize("name", [
    pytest.param("missing", id="no such file"),
    pytest.param("", id="a directory"),
    pytest.param("empty", id="an empty file"),
    pytest.param(MAX_PAYLOAD * "n", id="a name that fills the message"),
])
def test_without_an_exported_file_the_download_fails(camera, name):
    (EXCHANGE / "empty").write_text("")
    descriptors = camera.open_descriptors()
    assert download(camera, name) == answer(CONFIGURATION, DEVICE_ERROR)
    assert camera.open_descriptors() == descriptors


@pytest.mark.parametrize("length, received, stored", [
    pytest.param(1500, OK, SETTINGS[:1500], id="part of what was sent"),
    pytest.param(MOST, OK, SETTINGS[:2 * PIECE], id="of an incomplete body whole pieces are kept"),
    pytest.param(MOST + 1, DEVICE_ERROR, "before", id="too much"),
    pytest.param(0, OK, "", id="nothing"),
])
def test_an_upload_is_stored_as_far_as_it_arrives(camera, length, received, stored):
    UPLOADED.write_text("before")
    assert camera.effects("PUT", CONFIGURATION, SETTINGS,
                          variables={"CONTENT_LENGTH": str(length)}) == [received]
    assert UPLOADED.read_text() == stored


@pytest.fixture(params=[
    # The last kilobyte is still buffered when all writes are done; the close fails.
    pytest.param("size=16k", id="room for all but the last KB"),
    pytest.param("ro", id="no file can be created"),
])
def unsuitable_medium(request):
    subprocess.run(["mount", "-t", "tmpfs", "-o", request.param, "tmpfs", EXCHANGE], check=True)
    yield
    subprocess.run(["umount", EXCHANGE], check=True)  # fails while the service has a file open


@pytest.mark.usefixtures("unsuitable_medium")
def test_an_upload_that_cannot_be_stored_fails(camera):
    assert camera.effects("PUT", CONFIGURATION, 17 * 1024 * "x") == [DEVICE_ERROR]
