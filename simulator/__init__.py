"""The simulated camera: everything that the PSIA management service finds around it, on any Linux machine.

The modules, each of which imports only those before it:

    texts      text that a terminal may show, and indented XML
    messages   the control messages between service and daemons: layout, fields, words, queues
    settings   the settings databases, and what changed in them
    clock      the camera's clock, time zone and time since start
    device     the camera's files, network interface and queues, in private namespaces
    daemons    what the daemons do with each message, and how a rule makes them misbehave
    board      the command "daemons": the daemons on a development board
    processes  children of a camera
    inside     the command "inside": any program inside a camera
    fastcgi    the records of FastCGI
    front      the web server
    alarms     what follows when the sensor's contact closes
    rtsp       the RTSP server
    streams    what the streams are, who watches, and the process that a camera has in the machine's network
    journal    what happened, for people and test programs
    options    the options of the command "camera"
    camera     service, daemons, boots and outages of a camera that runs
    control    what the camera answers itself: /camera/, refusals
    relay      what stands between the web server and the service
    runs       how --shell and test programs find a run, and the shell inside it
    people     the command "camera": one camera or several, on a terminal
    testing    a running camera for the tests of clients
"""
import contextlib
import pathlib
from collections.abc import Iterator

PROJECT = pathlib.Path(__file__).parents[1]


class Fault(Exception):
    """What is wrong and what to do about it, in words for people."""


@contextlib.contextmanager
def attempt(what: str, advice: str = "") -> Iterator[None]:
    """What the system refuses is a fault: "Cannot write FILE: No space left on device"."""
    try:
        yield
    except OSError as error:
        raise Fault(f"Cannot {what}: {error.strerror or error}{advice}") from error
