"""The camera's event daemon: when the sensor's contact closes and the trigger is armed, it switches the
linked relay, or has the process outside (streams.py) upload a picture or send it by mail."""

import contextlib
import json
import socket
import threading
import time
from collections.abc import Callable, Iterator
from datetime import datetime
from typing import Any

from simulator import settings
from simulator.settings import Row, Tables, number

LINKS = {"SensorRelay": "RelayID", "FTPServer": "FTPServerID", "SMTPServer": "SMTPServerID"}
MAX_MESSAGE = 1 << 17  # bytes of a JSON object between the two; a socket takes that many at once
TIMEOUT = 10  # seconds for each answer of a server


def why_disarmed(trigger: Row, now: datetime) -> str:
    """Empty when the schedule has the trigger armed at the camera's local time."""
    start, end = number(trigger["StartTime"]), number(trigger["EndTime"])
    since, until = (f"{value // 100:02d}:{value % 100:02d}" for value in (start, end))
    if not number(trigger["Week"]) >> now.isoweekday() % 7 & 1:
        return f"the schedule has no {now:%A}"
    if not start <= now.hour * 100 + now.minute < end:
        return f"it is {now:%H:%M}, and the schedule is from {since} to {until}"
    return ""


class Alarms:
    """Of one run of the camera: a boot opens the relays."""

    def __init__(self, pipe: socket.socket) -> None:
        self.pipe = pipe  # to the process outside
        self.last = float("-inf")  # monotonic time of the last event
        self.relays: dict[str, float] = {}  # by alias, the monotonic time at which each opens again

    def closed_relays(self) -> list[str]:
        return [alias for alias, until in self.relays.items() if until > time.monotonic()]

    def sensor_closes(self, now: datetime) -> str:
        """What follows, in words."""
        tables = settings.current()
        trigger = tables["Event"].get("0")
        if not trigger or not any(number(row["Sensor"]) for row in tables["Spec"].values()):
            return "nothing follows: the camera has no sensor input"
        passed, interval = time.monotonic() - self.last, number(trigger["IgnoreInterval"])
        reason = why_disarmed(trigger, now)
        if not reason and passed < interval:
            reason = f"the last event was {passed:.1f} s ago, and the interval is {interval} s"
        if reason:
            return f"nothing follows: {reason}"
        self.last = time.monotonic()
        return ", ".join(self.follow(trigger, tables, now)) or "nothing follows: the trigger has no link"

    def follow(self, trigger: Row, tables: Tables, now: datetime) -> Iterator[str]:
        camera = next((str(row["DDNSHostname"]) for row in tables["Network"].values()), "")
        file = f"{camera}-{now:%Y%m%d-%H%M%S}.jpg"
        for table, column in LINKS.items():
            linked = tables[table].get(str(trigger[column]))
            if linked and table == "SensorRelay":
                self.relays[linked["Alias"]] = time.monotonic() + number(linked["Interval"])
                yield f"{linked['Alias']} closes for {number(linked['Interval'])} s"
            elif linked:
                tell(self.pipe, alarm={"kind": table, "server": linked, "camera": camera, "file": file})
                yield f"{linked['Alias']} is to receive {file}"
            elif number(trigger[column]) >= 0:
                yield f"there is no {table} {trigger[column]}"


def tell(pipe: socket.socket, **what: Any) -> None:
    with contextlib.suppress(OSError):  # who reads notices that the other process has ended
        pipe.send(json.dumps(what).encode())


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
