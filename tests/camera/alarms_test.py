"""What follows when the contact of the sensor closes: at the relay, an FTP server and a mail server."""
import asyncio
import datetime
import email
import socket
import threading

import pytest
from aiosmtpd.smtp import SMTP
from pyftpdlib.authorizers import DummyAuthorizer
from pyftpdlib.handlers import FTPHandler
from pyftpdlib.ioloop import IOLoop
from pyftpdlib.servers import FTPServer

from simulator import alarms
from simulator.testing import eventually

ALWAYS = "update Event set Week = 127, StartTime = 0, EndTime = 2400, IgnoreInterval = 60;"


def close_contact(camera):
    """Gives the journal's entry about it."""
    camera.control("PUT", "sensor")
    return camera.log(contains="contact closes")[-1]["text"]


@pytest.fixture
def ftp_server(tmp_path):
    """Its address. What is uploaded to its folder snapshots is in tmp_path."""
    (tmp_path / "snapshots").mkdir()
    accounts = DummyAuthorizer()
    accounts.add_user("camera", "ftppass", str(tmp_path), perm="elw")
    handler = type("Handler", (FTPHandler,), {"authorizer": accounts})
    server = FTPServer(("127.0.0.1", 0), handler, ioloop=IOLoop())
    thread = threading.Thread(target=server.serve_forever, kwargs={"timeout": 0.05})
    thread.start()
    yield "Address = '127.0.0.1', Port = %d" % server.address[1]
    server.ioloop.call_later(0, server.close_all)
    thread.join(10)


def test_a_picture_is_uploaded_once_within_the_interval(start, ftp_server, tmp_path):
    camera = start("--set", f"update FTPServer set {ftp_server};" + ALWAYS)
    assert "FTP-1 is to receive camera-1-" in close_contact(camera)
    assert "is uploaded" in camera.log(contains="FTP-1: ", wait=30)[0]["text"]
    (picture,) = (tmp_path / "snapshots").iterdir()
    assert picture.read_bytes().startswith(b"\xff\xd8\xff") and picture.name.endswith(".jpg")
    assert "nothing follows: the last event was" in close_contact(camera)


@pytest.fixture
def mail_server():
    """Its port, and the mails that it has taken."""
    mails = []

    class Handler:
        async def handle_DATA(self, _server, _session, envelope):
            mails.append(envelope)
            return "250 OK"
    loop = asyncio.new_event_loop()
    listening = loop.create_server(lambda: SMTP(Handler(), loop=loop), "127.0.0.1", 0)
    port = loop.run_until_complete(listening).sockets[0].getsockname()[1]
    thread = threading.Thread(target=loop.run_forever)
    thread.start()
    yield port, mails
    loop.call_soon_threadsafe(loop.stop)
    thread.join(10)


def test_a_mail_has_the_picture(start, mail_server):
    port, mails = mail_server
    server = f"Address = '127.0.0.1', Port = {port}, Recipient = 'guard@example.com'"
    camera = start("--set", f"update SMTPServer set {server};" + ALWAYS,
                   "--set", "update Event set FTPServerID = -1, SMTPServerID = 1")
    assert "Mail-1 is to receive" in close_contact(camera)
    assert "a mail to guard@example.com is sent" in camera.log(contains="Mail-1: ", wait=30)[0]["text"]
    assert mails[0].rcpt_tos == ["guard@example.com"]
    text, picture = email.message_from_bytes(mails[0].content).get_payload()
    assert "camera-1" in text.get_payload() and picture.get_payload(decode=True).startswith(b"\xff\xd8\xff")


def test_a_server_that_does_not_answer_delays_nothing(start):
    """It accepts the connection, and is silent."""
    with socket.create_server(("127.0.0.1", 0)) as silent:
        port = silent.getsockname()[1]
        camera = start("--set", f"update FTPServer set Address = '127.0.0.1', Port = {port};" + ALWAYS)
        close_contact(camera)
        assert "<deviceUpTime>" in camera.get("/PSIA/System/status")
        assert not camera.log(contains="FTP-1: ")
        assert "timed out" in camera.log(contains="FTP-1: failed", wait=30)[0]["text"]


def test_the_relay_is_closed_for_its_interval(start):
    camera = start("--set", ALWAYS + "update Event set FTPServerID = -1, RelayID = 2;"
                                     "update SensorRelay set Interval = 2")
    assert "Relay-2 closes for 2 s" in close_contact(camera)
    assert camera.now()["relays"] == ["Relay-2"]
    eventually(lambda: camera.now()["relays"] == [], "the relay opens")


@pytest.mark.parametrize("week, start, end, moment, expected", [
    (0b0000010, 800, 1730, "2024-05-06T08:00", ""),
    (0b0000010, 800, 1730, "2024-05-06T17:29", ""),
    (0b0000010, 800, 1730, "2024-05-06T17:30", "it is 17:30, and the schedule is from 08:00 to 17:30"),
    (0b0000010, 800, 1730, "2024-05-05T12:00", "the schedule has no Sunday"),
    (0b0000001, 0, 2400, "2024-05-05T23:59", ""),
])
def test_days_and_hours(week, start, end, moment, expected):
    trigger = {"Week": week, "StartTime": start, "EndTime": end}
    assert alarms.why_disarmed(trigger, datetime.datetime.fromisoformat(moment)) == expected
