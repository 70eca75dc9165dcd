"""The factory reset, and the settings as a file that clients download and upload."""
import pathlib
import shutil
import subprocess

import pytest

from camera import REPLIES, REQUESTS, reply, status

CONFIGURATION = "/PSIA/System/configurationData"
EXCHANGE = pathlib.Path("/usr/local/httpd/htdocs/Web/updownload")
# A settings file, of which no two pieces of 1024 bytes are alike.
SETTINGS = "".join(f"setting {number}\0\n" for number in range(300))


@pytest.mark.parametrize("query, effects", [
    # A second value is written over the first one: FULL, then BULL.
    ("?Mode=xULL=F", ["message 10 factory reset", "status 2"]),
    ("?MODE=FULL=B", ["status 3"]),
    # 255 characters are read; X is the 256th, then the 255th.
    ("?MODE=FULL" + 246 * "=" + "X", ["message 10 factory reset", "status 2"]),
    ("?MODE=FULL" + 245 * "=" + "X", ["status 3"]),
    ("?MODES=FULL", ["status 3"]),
    ("?", ["status 5"]),
])
def test_a_factory_reset_needs_its_mode(camera, query, effects):
    assert camera.effects("PUT", "/PSIA/System/factoryReset" + query, replies=[1]) == effects


def download(camera, name, result=0):
    """The answer when a daemon replies that it exported the settings to the file `name`."""
    request = camera.begin("GET", CONFIGURATION)
    assert REPLIES.send(reply(REQUESTS.next(), result, name.encode()))
    return request.receive()[0]


@pytest.mark.parametrize("size", [1, 1024, 2500])
def test_the_exported_file_is_sent_with_its_own_header(camera, size):
    (EXCHANGE / "export-%s.dat").write_text(SETTINGS[:size])
    assert download(camera, "export-%s.dat") == (
        f"Content-Type: application/octet-stream\nContent-length: {size}\n\n{SETTINGS[:size]}")
    assert download(camera, "export-%s.dat", result=1) == status(3, CONFIGURATION)


def test_without_an_exported_file_the_download_fails(camera):
    (EXCHANGE / "empty").write_text("")
    descriptors = camera.open_descriptors()
    for name in ["missing", "", "empty", 4104 * "n"]:
        assert download(camera, name) == status(3, CONFIGURATION)
    assert camera.open_descriptors() == descriptors


@pytest.mark.parametrize("length, code, stored", [
    ("1500", 1, SETTINGS[:1500]),
    ("67108864", 1, SETTINGS[:2048]),  # 64 MiB are the most; of an incomplete body whole KiB are kept
    ("67108865", 3, "before"),
    ("0", 1, ""),
])
def test_an_upload_is_stored_as_far_as_it_arrives(camera, length, code, stored):
    file = EXCHANGE / "psia_config.dat"
    file.write_text("before")
    effects = camera.effects("PUT", CONFIGURATION, SETTINGS[:2500], variables={"CONTENT_LENGTH": length})
    assert effects == [f"status {code}"]
    assert file.read_text() == stored


def test_an_upload_without_room_fails(camera):
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=16k", "tmpfs", EXCHANGE], check=True)
    # A write fails; of the smaller file only the close, which writes the last buffer.
    results = [camera.effects("PUT", CONFIGURATION, size * "x") for size in (300000, 18000)]
    subprocess.run(["umount", EXCHANGE], check=True)  # fails while a file is open
    shutil.rmtree(EXCHANGE)
    results.append(camera.effects("PUT", CONFIGURATION, "no directory"))
    EXCHANGE.mkdir()
    assert results == 3 * [["status 3"]]
