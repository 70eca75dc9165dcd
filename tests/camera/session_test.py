"""The simulated camera as a person uses it: each change is seen in the next read, on the terminal and in what
the page is told; a killed run leaves nothing in the way of the next."""
import os
import pathlib
import re
import select
import signal
import socket
import subprocess
import sys
import threading

import pytest

from bench.fastcgi_client import Connection
from simulator import PROJECT, fastcgi, processes
from simulator.testing import eventually

AUDIO = "/PSIA/System/Audio/channels/1"
AUDIO_OFF = "<AudioChannel><enabled>false</enabled></AudioChannel>"
ADDRESS = "/PSIA/System/Network/interfaces/eth0/ipAddress"
SETTINGS = "/PSIA/System/configurationData"
CAMERA = [sys.executable, str(PROJECT / "simulator"), "camera"]


def accepted(camera, path, body=b"", method="PUT"):
    answer = camera.put(path, body, method)
    assert "<statusCode>1<" in answer, f"{answer}\n{camera.shown()}"


def wait_for_boot(camera, boots):
    """The outage is real, and ends."""
    eventually(lambda: camera.ask("GET", "/PSIA/System/status")[0] == 503, "an outage")
    eventually(lambda: camera.shown().count("the camera boots") == boots and
               "<deviceUpTime>" in camera.get("/PSIA/System/status"), "a boot")
    seconds = int(re.search(r"<deviceUpTime>(\d+)", camera.get("/PSIA/System/status")).group(1))
    assert seconds < 60 or "no time namespaces" in camera.shown()


def test_changes_outlast_a_reboot_and_a_factory_reset_undoes_them_until_they_are_uploaded(start):
    camera = start("--boot", "1", "--set", "update Network set RTSPPort = 8554", "--answer", "3=busy")
    accepted(camera, ADDRESS, """
        <IPAddress>
          <addressingType>static</addressingType>
          <ipAddress>10.0.0.5</ipAddress>
          <subnetMask>255.0.0.0</subnetMask>
        </IPAddress>""")
    accepted(camera, "/PSIA/System/time", """
        <Time>
          <timeMode>manual</timeMode>
          <localTime>2031-05-01T10:00:00</localTime>
          <timeZone>CET-1</timeZone>
        </Time>""")
    accepted(camera, "/PSIA/System/time/timeZone", "CET-1")
    accepted(camera, "/PSIA/Security/AAA/users",
             "<User><userName>bob</userName><password>secret</password></User>", "POST")
    camera.shows("Network.IPAddress: 192.168.1.10 -> 10.0.0.5", "command 31", "User[bob] added: Level 2",
                 "command 6: set the clock manually to 2031-05-01 10:00:00")  # an added account has level 2
    assert "secret" not in camera.shown()
    now = camera.now()
    assert now["address"] == "10.0.0.5 255.0.0.0" and now["clock"].startswith("2031-05-01T10:0")
    assert now["tables"]["Network"][0]["RTSPPort"] == "8554"

    exported = camera.ask("GET", SETTINGS)[1].encode(errors="surrogateescape")
    accepted(camera, SETTINGS, exported[:len(exported) // 2])
    camera.shows("the uploaded settings are refused")
    accepted(camera, "/PSIA/System/factoryReset?MODE=FULL")
    wait_for_boot(camera, 2)
    assert "192.168.1.10<" in camera.get(ADDRESS) and "EST5EDT" in camera.get("/PSIA/System/time")
    now = camera.now()  # a client's factory reset undoes --set, as it would any change; the daemons stay busy
    assert now["tables"]["Network"][0]["RTSPPort"] == "554" and now["answers"] == ["3=busy"]

    accepted(camera, SETTINGS, exported)
    assert "bob" not in camera.get("/PSIA/Security/AAA/users")  # it takes effect with the boot
    accepted(camera, "/PSIA/System/reboot")
    wait_for_boot(camera, 3)
    assert "10.0.0.5<" in camera.get(ADDRESS)
    # Set at 10:00 by CET-1; Africa/Algiers, which CET-1 names, is one hour ahead of UTC too.
    assert "2031-05-01T10:0" in camera.get("/PSIA/System/time/localTime")
    camera.reset()  # as at the start
    assert camera.now()["tables"]["Network"][0]["RTSPPort"] == "8554"


@pytest.mark.parametrize("method, path, body, status, reason", [
    ("GET", "/camera/log?snice=3", "", 400, "There is no parameter snice."),
    ("PUT", "/camera/answers", "3=busy " + 4000 * "x", 400, "'" + 100 * "x" + "...' is not COMMAND=ok|"),
    ("PUT", "/camera/answers", 5000 * "x", 400, "The rules are longer than 4096 bytes."),
    ("PUT", "/camera/resett", "", 404, "There are GET /camera/log, "),
    # The web server itself refuses, without our words. It takes 2 MB, and has no such files in its folder.
    ("PUT", "/PSIA/System/deviceInfo", 3_000_000 * "x", 413, ""),
    ("GET", "/lighttpd.conf", "", 404, ""),
    ("GET", "/Web/updownload/settings.db", "", 404, "")], ids=lambda value: str(value)[:30])
def test_a_request_is_refused_with_the_reason_in_a_few_lines(camera, method, path, body, status, reason):
    answered, text = camera.ask(method, path, body)
    assert answered == status and reason in text
    assert len(text) < 700, "the request is quoted whole"  # the long ones have more than 4000 characters


def test_the_log_is_for_accounts_and_changes_are_for_administrators(camera):
    assert camera.ask("GET", "/camera/log", user="admin:wrong") == (401, "Unauthorized\n")
    assert camera.ask("GET", "/camera/log", user="guest:guest")[0] == 200
    assert camera.ask("PUT", "/camera/reset", user="operator:operator")[0] == 403


def test_a_web_server_of_ones_own_can_send_all_of_a_body_that_the_service_refuses_early(tmp_path):
    """nginx answers 502, or sends no body, where the connection ends while it sends."""
    path = str(tmp_path / "socket")
    camera = processes.start([*CAMERA, "--socket", path, "--", os.environ["PSIA_BINARY"]], signal.SIGTERM)
    eventually(lambda: socket.socket(socket.AF_UNIX).connect_ex(path) == 0, "the socket")
    variables = {"REQUEST_METHOD": "PUT", "REQUEST_URI": "/PSIA/System/deviceInfo",
                 "CONTENT_LENGTH": "1500000", "HTTP_AUTHORIZATION": "Basic YWRtaW46YWRtaW4="}  # admin:admin
    connection = Connection(path, variables, 1500000 * b"x", first=0)  # the service takes 1 MiB
    connection.socket.sendall(connection.rest)
    assert "<statusCode>3<" in connection.receive()[0]
    camera.terminate()
    assert camera.wait(20) == 0 and not os.path.exists(path)


def test_a_client_that_has_its_answer_finds_the_request_in_the_log(start, tmp_path, monkeypatch):
    """Also when the service does not close the connection yet."""
    service, answer = tmp_path / "service", fastcgi.answer_records(1, b"Status: 200 OK\r\n\r\n")
    service.write_text(f"""#!{sys.executable}
import signal, socket
connection, _ = socket.socket(fileno=0).accept()
connection.sendall({answer})
signal.pause()
""")
    service.chmod(0o755)
    monkeypatch.setenv("PSIA_BINARY", str(service))
    camera = start()
    camera.get("/PSIA/index")
    assert camera.log(contains="GET /PSIA/index  200")


def leave_a_change_unanswered(camera):
    """Returns while the service waits for its daemons."""
    camera.answers("3=never")
    settings = pathlib.Path(f"/proc/{camera.process.pid}/root/usr/local/orvid/morvid.db")
    before = settings.read_bytes()
    threading.Thread(target=camera.ask, args=("PUT", AUDIO, AUDIO_OFF)).start()
    journal = settings.with_name("morvid.db-journal")  # gone when the change is committed
    eventually(lambda: settings.read_bytes() != before and not journal.exists(), "the stored change")


def test_a_camera_ends_well_while_its_service_waits_for_the_daemons(start):
    camera = start()
    leave_a_change_unanswered(camera)
    camera.process.terminate()
    assert camera.process.wait(20) == 0
    camera.shows("before the service stops; answer: failed", "service ended with exit status 0")


def test_a_killed_camera_leaves_nothing_in_the_way_of_the_next(start, tmp_path):
    # Neither does an address that is none: each boot only reports it.
    killed = start("--keep", str(tmp_path / "kept"), "--set", "update Network set IPAddress = 'none'",
                   directory=tmp_path)
    port = killed.url.rpartition(":")[2]
    pid = killed.process.pid
    children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    assert len(children) == 3, "the web server, the service and the process that delivers alarms"
    ends = [os.pidfd_open(int(child)) for child in children]
    leave_a_change_unanswered(killed)
    killed.process.kill()
    killed.process.wait()
    eventually(lambda: select.select(ends, [], [], 0)[0] == ends, "the end of its children")
    again = start("--keep", str(tmp_path / "kept"), "--port", port, directory=tmp_path)
    eventually(lambda: "<enabled>false<" in again.get(AUDIO), "the change")
    assert again.stop() == 0
    assert sorted(file.name for file in tmp_path.iterdir()) == ["kept", "terminal"]


def test_no_path_that_a_person_names_is_removed(tmp_path):
    """Each is refused before anything starts, and stays."""
    def refusal(*options):
        command = [*CAMERA, "--run-directory", tmp_path, *options]
        done = subprocess.run(command, capture_output=True, text=True)
        assert done.returncode == 1 and not done.stdout
        return done.stderr

    (tmp_path / "folder/deep").mkdir(parents=True)
    (tmp_path / "letter").write_text("dear all\n")
    (tmp_path / "link").symlink_to(tmp_path / "letter")
    before = sorted(tmp_path.rglob("*"))
    for name in ("folder", "letter", "link"):
        assert "no camera wrote it" in refusal("--port", "0", "--ready-file", tmp_path / name)
    with socket.create_server(("127.0.0.1", 0)) as listener:
        assert "is taken" in refusal("--port", str(listener.getsockname()[1]))
    assert sorted(tmp_path.rglob("*")) == before
