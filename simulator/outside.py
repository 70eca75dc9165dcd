"""The process that a camera has in the machine's network, because its own leads nowhere. It takes the
pictures of alarms to FTP and mail servers; with --video it is the RTSP server (rtsp.py), too. Camera and
process send each other JSON objects."""

import contextlib
import json
import os
import socket
import threading
from collections.abc import Callable, Iterator, Sequence
from typing import Any

from simulator import PROJECT, Fault, front
from simulator.processes import die_with, start

STILL = PROJECT / "simulator/page/scene.jpg"  # the picture of an alarm without --video
PYTHON = "/usr/bin/python3"  # GStreamer's bindings are Debian's, for this one
VIDEO_PORTS = range(8554, 8755)  # that are tried without --video-port
MAX_MESSAGE = 1 << 17  # bytes; a socket takes that many at once
TIMEOUT = 10  # seconds for each answer of a server


def tell(pipe: socket.socket, **what: Any) -> None:
    with contextlib.suppress(OSError):  # who reads notices that the other process has ended
        pipe.send(json.dumps(what).encode())


def listen(address: str, ports: Sequence[int]) -> socket.socket:
    for port in ports:
        try:
            return front.listen(address, port)
        except OSError as error:
            reason = error.strerror
    raise Fault(f"Cannot listen at {front.authority(address, port)} for --video: {reason}")


class Outside:
    def __init__(self, address: str, ports: Sequence[int]) -> None:
        """Starts the process; this one must not have entered the device yet. With ports it is an RTSP server
        at the first that is free."""
        self.pipe, theirs = socket.socketpair(type=socket.SOCK_SEQPACKET)
        self.port, self.url = 0, ""
        parent = os.getpid()
        if ports:
            listener = listen(address, ports)
            self.port = listener.getsockname()[1]
            self.url = f"rtsp://{front.authority(front.reachable(address), self.port)}"
            ends = theirs.fileno(), listener.fileno()
            command = [PYTHON, "-m", "simulator.rtsp", *map(str, ends)]
            # GStreamer's list of plugins, which it would keep in the home directory.
            own = {"PYTHONPATH": str(PROJECT), "GST_REGISTRY": str(PROJECT / "build/gstreamer.registry")}
            start(command, pass_fds=ends, env=os.environ | own)
        elif os.fork() == 0:
            try:
                die_with(parent)
                os.setpgid(0, 0)  # no key on the terminal reaches it
                os.closerange(3, theirs.fileno())
                os.closerange(theirs.fileno() + 1, os.sysconf("SC_OPEN_MAX"))
                while message := theirs.recv(MAX_MESSAGE):
                    deliver(json.loads(message)["alarm"], STILL.read_bytes, theirs)
            finally:
                os._exit(1)
        theirs.close()

    def received(self) -> Iterator[dict[str, Any]]:
        try:
            while message := self.pipe.recv(MAX_MESSAGE, socket.MSG_DONTWAIT):
                yield json.loads(message)
        except BlockingIOError:
            return
        except ConnectionResetError:
            pass  # it has ended with messages unread
        raise Fault("The RTSP server has ended. scripts/run --video installs what it needs.")


def deliver(alarm: dict[str, Any], picture: Callable[[], bytes], pipe: socket.socket) -> None:
    """Takes the picture of an alarm to its server, in a thread, and tells the camera what came of it."""

    def run() -> None:
        server = alarm["server"]
        try:
            what = (upload if alarm["kind"] == "FTPServer" else send_mail)(alarm, server, picture())
        except Exception as error:  # whatever the server or a stored value brings about
            what = f"failed at {server['Address']}:{server['Port']}: {error or type(error).__name__}"
        tell(pipe, words=f"{server['Alias']}: {what}")

    threading.Thread(target=run, daemon=True).start()


def upload(alarm: dict[str, Any], server: dict[str, Any], picture: bytes) -> str:
    import ftplib  # here and below: at the camera's start it would take time that few cameras need
    import io

    with ftplib.FTP(timeout=TIMEOUT) as ftp:
        ftp.connect(server["Address"], server["Port"])
        ftp.login(server["UserID"], server["Password"])
        if server["Path"]:
            ftp.cwd(server["Path"])
        ftp.storbinary(f"STOR {alarm['file']}", io.BytesIO(picture))
    return f"{alarm['file']} is uploaded, {len(picture)} bytes"


def send_mail(alarm: dict[str, Any], server: dict[str, Any], picture: bytes) -> str:
    import smtplib
    from email.message import EmailMessage

    mail = EmailMessage()
    mail["From"] = server["Sender"] or server["UserID"]
    mail["To"] = server["Recipient"] or mail["From"]
    mail["Subject"] = server["Subject"] or f"Alarm of {alarm['camera']}"
    mail.set_content(f"The sensor of {alarm['camera']} has closed.\n")
    mail.add_attachment(picture, maintype="image", subtype="jpeg", filename=alarm["file"])
    with smtplib.SMTP(server["Address"], server["Port"], local_hostname="camera", timeout=TIMEOUT) as smtp:
        if server["Encryption"]:
            smtp.starttls()
        smtp.ehlo_or_helo_if_needed()
        if server["UserID"] and smtp.has_extn("auth"):
            smtp.login(server["UserID"], server["Password"])
        smtp.send_message(mail)
    return f"a mail to {mail['To']} is sent"
