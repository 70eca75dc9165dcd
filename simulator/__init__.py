"""The simulated camera: everything that the PSIA management service finds around it, on any Linux machine.

The modules, each of which imports only those before it:

    texts      text that a terminal may show, and indented XML
    messages   the control messages between service and daemons: layout, fields, words, queues
    settings   the settings databases, and what changed in them
    clock      the camera's clock, time zone and time since start
    device     the camera's files, network interface and queues, in private namespaces
    daemons    what the daemons do with each message, and how a rule makes them misbehave
    fastcgi    FastCGI records, a client
    inside     a command inside a camera
    board      the daemons on a development board
"""


class Fault(Exception):
    """What is wrong and what to do about it, in words for people."""
