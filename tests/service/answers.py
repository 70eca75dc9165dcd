"""What a client is answered and the daemons are told, in names that the tests use."""
import datetime
import re
import struct
import time

STATUSES = {1: "OK", 2: "Device Busy", 3: "Device Error", 4: "Invalid Operation", 5: "Invalid XML Format",
            6: "Invalid XML Content", 7: "Reboot Required"}
UNAUTHORIZED = ("Status: 401 Unauthorized\r\n"
                'WWW-Authenticate: Basic realm="Quellan Smart IP Device Authentication"\r\n'
                "Content-Type: text/plain\r\n\r\nUnauthorized\r\n\r\n")


def status(code, uri):
    """The bytes of a ResponseStatus answer to a request for `uri`."""
    body = f"""<?xml version="1.0" encoding="UTF-8" ?>
<ResponseStatus version="1.0" xmlns="urn:psialliance-org">
<requestURL>{uri}</requestURL>
<statusCode>{code}</statusCode>
<!-- O=1-OK, 2-Device Busy, 3-Device Error, 4-Invalid Operation, 5-Invalid XML Format, \
6-Invalid XML content; 7-Reboot Required -->
<statusString>{STATUSES.get(code)}</statusString>
<id>1</id>
</ResponseStatus>
"""
    return (f"Content-Length: {len(body.encode())}\r\n"
            f'Content-Type: application/xml; charset="UTF-8"\r\n\r\n{body}')


def contents(message, sender):
    """A message, as "message 2 encoder: master = 1"; "byte 200 = 7" for what belongs to no field, as bytes
    count on the camera."""
    values = message.fields.values()
    packed = [value.encode(errors="surrogateescape") if isinstance(value, str) else value for value in values]
    expected = struct.pack(f"<i 4x {message.known.layout}", message.command, *packed)
    pairs = enumerate(zip(message.body, expected.ljust(len(message.body), b"\0")), 4)
    told = [] if message.type == sender else [f"type = {message.type}"]
    told += [f"{name} = {value}" for name, value in message.fields.items()]
    told += [f"byte {place} = {byte}" for place, (byte, own) in pairs if byte != own]
    return f"message {message.command} {message.known.name}" + (": " if told else "") + ", ".join(told)


def elements(answer):
    """The texts of a document by the names of their elements."""
    return dict(re.findall(r"<(\w+)>([^<]*)</", answer))


def offset_of(local_time):
    """By how many seconds a local time that was just shown is ahead of UTC."""
    ahead = datetime.datetime.fromisoformat(local_time + "+00:00").timestamp() - time.time()
    return 10 * round(ahead / 10)  # the answer may be a few seconds old


# Answers, as Camera.effects shows them.
OK, DEVICE_BUSY, DEVICE_ERROR, INVALID_OPERATION, INVALID_XML_FORMAT = [
    f"status {code}" for code in (1, 2, 3, 4, 5)]


def answer(uri, *statuses):
    """The bytes of an answer that consists of these status documents."""
    return "".join(status(int(name.removeprefix("status ")), uri) for name in statuses)


NO_RESOURCE = "/PSIA/no/resource"
# What a user who is logged in receives for this URL. Nothing else happens.
LOGGED_IN = answer(NO_RESOURCE, INVALID_OPERATION)


def logged_in(camera, user="admin:admin", **options):
    received = camera.call("GET", NO_RESOURCE, user=user, **options)
    assert received in (LOGGED_IN, UNAUTHORIZED)
    return received == LOGGED_IN
