"""What follows when the contact of the sensor closes: at the relay, an FTP server and a mail server."""
import datetime
import mailbox
import socket
import subprocess
import sys

import pytest

from simulator import alarms
from simulator.testing import eventually

ALWAYS = "update Event set Week = 127, StartTime = 0, EndTime = 2400, IgnoreInterval = 60;"
SUNDAY, MONDAY = 1 << 0, 1 << 1  # bits of Week
START_OF_A_JPEG = b"\xff\xd8\xff"


def close_contact(camera):
    """Gives the journal's entry about it."""
    camera.control("PUT", "sensor")
    return camera.log(contains="contact closes")[-1]["text"]


@pytest.fixture
def serve(request):
    """Starts a server that is a module of Python. Gives its port, which takes the place of PORT."""
    def start_server(*command):
        with socket.create_server(("127.0.0.1", 0)) as free:
            port = free.getsockname()[1]
        module = [word.replace("PORT", str(port)) for word in command]
        server = subprocess.Popen([sys.executable, "-m", *module])
        request.addfinalizer(server.kill)
        eventually(lambda: socket.socket().connect_ex(("127.0.0.1", port)) == 0, f"the server {command}")
        return port
    return start_server


def test_a_picture_is_uploaded_once_within_the_interval(start, serve, tmp_path):
    snapshots = tmp_path / "snapshots"  # folder, user and password are those of the factory state
    snapshots.mkdir()
    port = serve("pyftpdlib", "--interface=127.0.0.1", "--port=PORT", "--write", f"--directory={tmp_path}",
                 "--username=camera", "--password=ftppass")
    camera = start("--set", f"update FTPServer set Address = '127.0.0.1', Port = {port};" + ALWAYS)
    assert "FTP-1 is to receive camera-1-" in close_contact(camera)
    assert "is uploaded" in camera.log(contains="FTP-1: ", wait=30)[0]["text"]
    (picture,) = snapshots.iterdir()
    assert picture.read_bytes().startswith(START_OF_A_JPEG) and picture.name.endswith(".jpg")
    assert "nothing follows: the last event was" in close_contact(camera)


def test_a_mail_has_the_picture(start, serve, tmp_path):
    port = serve("aiosmtpd", "--nosetuid", "--listen=127.0.0.1:PORT", "--class=aiosmtpd.handlers.Mailbox",
                 str(tmp_path / "mails"))
    server = f"Address = '127.0.0.1', Port = {port}, Recipient = 'guard@example.com'"
    camera = start("--set", f"update SMTPServer set {server};" + ALWAYS,
                   "--set", "update Event set FTPServerID = -1, SMTPServerID = 1")  # -1: none
    assert "Mail-1 is to receive" in close_contact(camera)
    assert "a mail to guard@example.com is sent" in camera.log(contains="Mail-1: ", wait=30)[0]["text"]
    (mail,) = mailbox.Maildir(tmp_path / "mails")
    assert mail["X-RcptTo"] == "guard@example.com"
    text, picture = mail.get_payload()
    assert "camera-1" in text.get_payload()  # the name of the device
    assert picture.get_payload(decode=True).startswith(START_OF_A_JPEG)


def test_a_server_that_does_not_answer_delays_nothing(start):
    """It accepts the connection, and is silent."""
    with socket.create_server(("127.0.0.1", 0)) as silent:
        port = silent.getsockname()[1]
        camera = start("--set", f"update FTPServer set Address = '127.0.0.1', Port = {port};" + ALWAYS)
        close_contact(camera)
        assert "<deviceUpTime>" in camera.get("/PSIA/System/status")
        assert not camera.log(contains="FTP-1: ")
        assert "timed out" in camera.log(contains="FTP-1: failed", wait=30)[0]["text"]


def test_nothing_is_sent_outside_the_schedule(start):
    with socket.create_server(("127.0.0.1", 0)) as server:
        port = server.getsockname()[1]
        camera = start("--set", f"update FTPServer set Address = '127.0.0.1', Port = {port};" + ALWAYS,
                       "--set", "update Event set Week = 0")
        assert "nothing follows: the schedule has no" in close_contact(camera)
        server.settimeout(1)  # second
        with pytest.raises(TimeoutError):
            server.accept()


def test_the_relay_is_closed_for_its_interval(start):
    camera = start("--set", ALWAYS + "update Event set FTPServerID = -1, RelayID = 2;"
                                     "update SensorRelay set Interval = 2")
    assert "Relay-2 closes for 2 s" in close_contact(camera)
    assert camera.now()["relays"] == ["Relay-2"]
    eventually(lambda: camera.now()["relays"] == [], "the relay opens")


@pytest.mark.parametrize("week, start, end, moment, why_not", [
    (MONDAY, 800, 1730, "2024-05-06T08:00", ""),  # a Monday; "" is no reason against
    (MONDAY, 800, 1730, "2024-05-06T17:29", ""),
    (MONDAY, 800, 1730, "2024-05-06T17:30", "it is 17:30, and the schedule is from 08:00 to 17:30"),
    (MONDAY, 800, 1730, "2024-05-05T12:00", "the schedule has no Sunday"),
    (SUNDAY, 0, 2400, "2024-05-05T23:59", ""),
])
def test_an_alarm_does_nothing_outside_the_days_and_hours_of_the_schedule(week, start, end, moment, why_not):
    trigger = {"Week": week, "StartTime": start, "EndTime": end}
    assert alarms.why_disarmed(trigger, datetime.datetime.fromisoformat(moment)) == why_not
