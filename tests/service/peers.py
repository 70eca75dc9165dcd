"""Peers that send a request in parts, and time as a service with the fault library counts it."""
import contextlib
import struct
import time

from simulator.fastcgi import HEADER, parameter

BEGIN = HEADER.size + struct.calcsize(">HB5x")  # bytes of the record that begins a request


def up_to_uri(method, uri):
    """How many bytes of a request Camera.begin sends up to its URI, which comes before the credentials."""
    return BEGIN + HEADER.size + len(parameter("REQUEST_METHOD", method)) + len(parameter("REQUEST_URI", uri))


@contextlib.contextmanager
def peer(camera, *request, **options):
    """The connection on which a request is sent, as by Camera.begin. It is closed at the end."""
    connection = camera.begin(*request, **options)
    with connection.socket:
        yield connection


def seconds(camera):
    """What the service's clock shows."""
    return time.monotonic() * camera.plan.speed


def let_pass(camera, seconds):
    time.sleep(seconds / camera.plan.speed)
