"""Peers of the service that do not behave as a web server does."""
import contextlib
import struct

from bench.fastcgi_client import parameter
from simulator.fastcgi import HEADER


@contextlib.contextmanager
def peer(camera, *request, **options):
    """The connection on which a request is sent, as by Camera.begin. It is closed at the end."""
    connection = camera.begin(*request, **options)
    with connection.socket:
        yield connection


def up_to_uri(method, uri):
    """How many bytes of a request Camera.begin sends up to its URI, which comes before the credentials."""
    begin = HEADER.size + struct.calcsize(">HB5x")  # the record that begins a request
    return begin + HEADER.size + len(parameter("REQUEST_METHOD", method)) + len(parameter("REQUEST_URI", uri))
