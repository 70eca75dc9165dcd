#!/usr/bin/env python3
"""A client of the camera's management interface, to copy from. Needs only Python's standard library.

    camera.py [--user admin] [--password admin] HOST[:PORT] COMMAND [ARGUMENT]...

    show                               name, address, clock and accounts
    rename NAME                        the camera's name
    address ADDRESS MASK GATEWAY DNS   a static address; without arguments one from a DHCP server
    zone TEXT                          the time zone, with a text of the time-zone table
    clock TIME RULE                    the clock by hand: 2026-11-21T10:00:00 CET-1CEST,M3.5.0,M10.5.0/3
    add NAME PASSWORD                  an account that may read
    password NAME PASSWORD             another password for an account
    remove NAME                        an account
    stream WIDTH HEIGHT KBIT FPS       channel 1 with H.264 and a constant bit rate
    alarm MAIL-SERVER DAY BEGIN END    a mail when the sensor input is triggered, on day 1 (Monday) to 7,
                                       from hour BEGIN to hour END
    export FILE                        the settings into a file
    import FILE                        the settings of a file, which the camera takes over when it restarts
    reboot                             restart, and wait until the camera is back
"""

import argparse
import base64
import re
import sys
import time
import urllib.error
import urllib.request
import xml.etree.ElementTree as ElementTree

TIMEOUT = 240  # seconds: exports and resets take three minutes and more when the camera is in trouble
STATUSES = {
    2: "the camera is busy",
    3: "the camera reports an error",
    4: "the URL is unknown or the account may not do that",
    5: "the camera does not understand the document",
}


class CameraError(Exception):
    pass


class Camera:
    def __init__(self, host, user, password):
        self.base = f"http://{host}/PSIA"
        self.authorization = "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()

    def request(self, method, path, body=None, content_type="application/xml", timeout=TIMEOUT):
        """The bytes of the answer. Raises CameraError without one and for HTTP statuses from 400 on."""
        data = body.encode() if isinstance(body, str) else body
        request = urllib.request.Request(self.base + path, data, method=method)
        request.add_header("Authorization", self.authorization)
        request.add_header("Content-Type", content_type)
        try:
            with urllib.request.urlopen(request, timeout=timeout) as answer:
                return answer.read()
        except urllib.error.HTTPError as error:
            # 401: wrong credentials. 500 or 502: the service gave no answer.
            raise CameraError(f"{method} {path}: HTTP {error.code}") from error
        except OSError as error:
            raise CameraError(f"{method} {path}: {error}") from error

    def read(self, path, timeout=TIMEOUT):
        """The document of a resource; its names have no namespace."""
        text = self.request("GET", path, timeout=timeout).decode(errors="replace")
        try:
            document = ElementTree.fromstring(re.sub(r' xmlns="[^"]*"', "", text))
        except ElementTree.ParseError as error:
            raise CameraError(f"GET {path}: no XML, because a stored text holds & or <") from error
        if document.tag == "ResponseStatus":
            check_status(f"GET {path}", text)
        return document

    def change(self, method, path, body=None, content_type="application/xml"):
        check_status(f"{method} {path}", self.request(method, path, body, content_type).decode())


def check_status(what, answer):
    """The HTTP status is 200 for nearly everything. The document tells what happened."""
    found = re.search(r"<statusCode>(\d+)", answer)
    if found is None:
        raise CameraError(f"{what}: no status in the answer")
    status = int(found[1])
    if status != 1:
        raise CameraError(f"{what}: status {status}, {STATUSES.get(status, 'unknown')}")


def text(value, length):
    """A value for a document. What the camera would truncate, lose or show as no XML is refused here."""
    if len(value.encode()) > length:
        raise CameraError(f"{value} is longer than {length} bytes")
    if re.search(r"[&<>']|%%", value):
        raise CameraError(f"{value}: the camera cannot store or show & < > ' and two percent signs")
    return value


def account_name(name):
    """Others can be made, but not be changed or deleted by their URL."""
    if not re.fullmatch(r"[A-Za-z0-9_-]{4,31}", name):
        raise CameraError(f"{name}: use 4 to 31 letters, digits, - and _")
    return name


def accounts(camera):
    return [user.findtext("userName") for user in camera.read("/Security/AAA/users")]


def show(camera):
    info, status = camera.read("/System/deviceInfo"), camera.read("/System/status")
    address = camera.read("/System/Network/interfaces/eth0/ipAddress")
    print(*(info.findtext(name) for name in ("deviceName", "model", "firmwareVersion")), sep=", ")
    print(
        f"{address.findtext('ipAddress')} ({address.findtext('addressingType')}), "
        f"name server {address.findtext('PrimaryDNS/ipAddress').strip()}"
    )
    print(f"{status.findtext('currentDeviceTime')}, up {status.findtext('deviceUpTime')} s")
    print("accounts:", *accounts(camera))


def rename(camera, name):
    camera.change(
        "PUT", "/System/deviceInfo", f"<DeviceInfo><deviceName>{text(name, 31)}</deviceName></DeviceInfo>"
    )


def set_address(camera, address=None, mask=None, gateway=None, name_server=None):
    """The camera may answer at another address afterwards."""
    if address is None:
        fields = "<addressingType>dynamic</addressingType>"
    else:
        fields = (
            f"<addressingType>static</addressingType><ipAddress>{text(address, 31)}</ipAddress>"
            f"<subnetMask>{text(mask, 31)}</subnetMask>"
            f"<DefaultGateway><ipAddress>{text(gateway, 31)}</ipAddress></DefaultGateway>"
            f"<PrimaryDNS><ipAddress>{text(name_server, 31)}</ipAddress></PrimaryDNS>"
        )
    camera.change("PUT", "/System/Network/interfaces/eth0/ipAddress", f"<IPAddress>{fields}</IPAddress>")


def set_zone(camera, zone):
    """`zone` is a whole text of docs/reference/time-zones.md. Local times follow after a restart."""
    camera.change("PUT", "/System/time/timeZone", zone, "text/plain")


def set_clock(camera, local_time, rule):
    """The rule must be given: without it the times that the camera shows become UTC."""
    camera.change(
        "PUT",
        "/System/time",
        f"<Time><timeMode>manual</timeMode><localTime>{local_time}</localTime>"
        f"<timeZone>{rule}</timeZone></Time>",
    )


def add_account(camera, name, password):
    """The name stands before the password, or nothing is added."""
    camera.change(
        "POST",
        "/Security/AAA/users",
        f"<User><userName>{account_name(name)}</userName>"
        f"<password>{text(password, 31)}</password></User>",
    )


def set_password(camera, name, password):
    """Through the list, which works for every name. For an unknown one the camera answers 1, too."""
    if name not in accounts(camera) or name == "anonymous":
        raise CameraError(f"{name}: there is no such account, or its password cannot be changed")
    camera.change(
        "PUT",
        "/Security/AAA/users",
        f"<UserList><User><userName>{text(name, 31)}</userName>"
        f"<password>{text(password, 31)}</password></User></UserList>",
    )


def remove_account(camera, name):
    camera.change("DELETE", "/Security/AAA/users/" + account_name(name))
    if name in accounts(camera):
        raise CameraError(f"{name} is still there")


def set_stream(camera, width, height, bit_rate, frame_rate):
    """Every field that is left out would be reset, so all are sent; id and enabled come before Video."""
    now = camera.read("/Streaming/channels/1/capabilities")
    sizes = now.find("Video/videoResolutionHeight").get("opt").split(",")
    if height not in sizes:
        raise CameraError(f"the camera has no picture of {height} lines, but of {' and '.join(sizes)}")
    camera.change(
        "PUT",
        "/Streaming/channels/1",
        f"""<StreamingChannel><id>1</id><enabled>true</enabled>
      <Transport><rtspPortNo>{now.findtext('Transport/rtspPortNo')}</rtspPortNo></Transport>
      <Video><videoCodecType>H.264</videoCodecType><videoResolutionWidth>{width}</videoResolutionWidth>
        <videoResolutionHeight>{height}</videoResolutionHeight>
        <videoQualityControlType>CBR</videoQualityControlType><constantBitRate>{bit_rate}</constantBitRate>
        <maxFrameRate>{100 * int(frame_rate)}</maxFrameRate></Video>
      <Audio><enabled>{now.findtext('Audio/enabled')}</enabled>
        <audioCompressionType>{now.findtext('Audio/audioCompressionType')}</audioCompressionType>
        <audioBitRate>{now.findtext('Audio/audioBitRate')}</audioBitRate></Audio></StreamingChannel>""",
    )


def set_alarm(camera, mail_server, day, begin, end):
    """No request tells the ids; they are in the camera's database. For wrong ones the camera answers 1."""
    camera.change(
        "PUT",
        "/Custom/Event/triggers",
        f"""<EventTriggerList><EventTrigger><id>Sensor-0</id>
      <intervalBetweenEvents>5</intervalBetweenEvents><EventTriggerNotificationList><EventTriggerNotification>
      <id>{text(mail_server, 127)}</id><notificationMethod>SMTP</notificationMethod>
      </EventTriggerNotification>
      </EventTriggerNotificationList></EventTrigger></EventTriggerList>""",
    )
    # One day, and the end hour in the place of the minutes.
    camera.change(
        "PUT",
        "/Custom/Event/schedule",
        f"""<EventSchedule><TimeBlockList><TimeBlock><dayOfWeek>{day}</dayOfWeek>
      <TimeRange><beginTime>{int(begin):02}:00:00</beginTime>
      <endTime>00:{int(end):02}:00</endTime></TimeRange>
      </TimeBlock></TimeBlockList></EventSchedule>""",
    )


def export_settings(camera, file):
    settings = camera.request("GET", "/System/configurationData")
    if settings.startswith(b"<?xml"):
        check_status("GET /System/configurationData", settings.decode())
    with open(file, "wb") as output:
        output.write(settings)


def import_settings(camera, file):
    with open(file, "rb") as settings:
        camera.change("PUT", "/System/configurationData", settings.read(), "application/octet-stream")


def reboot(camera, limit=180):
    """The camera answers before it goes down. It has restarted when its uptime is less than it would be."""
    before = int(camera.read("/System/status").findtext("deviceUpTime"))
    start = time.monotonic()
    camera.change("PUT", "/System/reboot")
    while (elapsed := time.monotonic() - start) < limit:
        try:
            now = int(camera.read("/System/status", timeout=10).findtext("deviceUpTime"))
            if now < before + elapsed - 1:  # both uptimes are rounded down
                return
        except CameraError:
            pass  # it is down
        time.sleep(1)
    raise CameraError(f"the camera is not back after {limit} s")


COMMANDS = {
    "show": show,
    "rename": rename,
    "address": set_address,
    "zone": set_zone,
    "clock": set_clock,
    "add": add_account,
    "password": set_password,
    "remove": remove_account,
    "stream": set_stream,
    "alarm": set_alarm,
    "export": export_settings,
    "import": import_settings,
    "reboot": reboot,
}


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--user", default="admin")
    parser.add_argument("--password", default="admin")
    parser.add_argument("host")
    parser.add_argument("command", choices=COMMANDS)
    parser.add_argument("arguments", nargs="*")
    options = parser.parse_args()
    camera = Camera(options.host, options.user, options.password)
    try:
        COMMANDS[options.command](camera, *options.arguments)
    except (CameraError, TypeError, ValueError) as error:
        sys.exit(f"{options.command}: {error}")


if __name__ == "__main__":
    main()
