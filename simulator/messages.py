"""The control messages that the service and the camera's daemons exchange over two System V queues."""
import ctypes
import struct
from typing import Any, NamedTuple

from simulator.texts import decoded

# What the service asks for.
PICTURE, ENCODER, AUDIO, CLOCK, TIME_ZONE, REBOOT, FACTORY_RESET, EXPORT = 1, 2, 3, 6, 7, 8, 10, 11
ADDRESSING, NAME_SERVERS, RTSP_PORT = 31, 33, 37

DONE, BUSY, FAILED = 0, 1, 2
RESULTS = {"done": DONE, "busy": BUSY, "failed": FAILED}  # of a reply
BY_NTP = 2  # mode of CLOCK; any other: set by hand

TYPE_WORD = struct.calcsize("@l")  # 4 bytes on the camera, 8 on a 64-bit machine
BODY = 4112  # bytes of a record behind its type word: command, result, payload
MAX_PAYLOAD = BODY - 9  # of a reply: command and result come before it, a zero byte behind
CREATE, NO_WAIT, TRUNCATE, REMOVE = 0o1000, 0o4000, 0o10000, 0  # NO_WAIT: no signal interrupts a call

libc = ctypes.CDLL(None, use_errno=True)
libc.msgrcv.argtypes = [ctypes.c_int, ctypes.c_void_p, ctypes.c_size_t, ctypes.c_long, ctypes.c_int]
libc.msgsnd.argtypes = [ctypes.c_int, ctypes.c_char_p, ctypes.c_size_t, ctypes.c_int]


class Command(NamedTuple):
    name: str
    words: str  # what it tells the daemons, with its fields
    layout: str = ""  # of the payload in the notation of struct: numbers and zero-terminated texts
    fields: str = ""  # their names


COMMANDS = {
    PICTURE: Command("picture", "picture settings changed, video source {source}", "i", "source"),
    ENCODER: Command("encoder", "encoder settings changed, {stream} stream", "4x i", "master"),
    AUDIO: Command("audio", "audio settings changed"),
    CLOCK: Command(
        "time",
        "{what} {year:04d}-{month:02d}-{day:02d} {hour:02d}:{minute:02d}:{second:02d}, "
        "NTP server {server}, every {interval} min",
        "i 128s i 6i",
        "mode server interval year month day hour minute second",
    ),
    TIME_ZONE: Command("time zone", "time zone {zone}", "256s", "zone"),
    REBOOT: Command("reboot", "reboot"),
    FACTORY_RESET: Command("factory reset", "restore the factory settings"),
    EXPORT: Command("export", "export the settings"),
    ADDRESSING: Command("addressing", "network addressing changed"),
    NAME_SERVERS: Command("name servers", "name servers {servers}", "256s", "servers"),
    RTSP_PORT: Command("RTSP port", "RTSP port changed"),
}


class Message:
    def __init__(self, record: bytes) -> None:
        self.type, self.command = struct.unpack_from("@li", record)  # the type is the sender's process id
        self.body = record[TYPE_WORD:]
        self.known = COMMANDS.get(self.command, Command("unknown", "unknown to the daemons"))
        found = struct.unpack_from(f"<8x {self.known.layout}", self.body)  # behind command and result
        values = (decoded(value.split(b"\0")[0]) if isinstance(value, bytes) else value for value in found)
        self.fields: dict[str, Any] = dict(zip(self.known.fields.split(), values))  # numbers and texts

    def describe(self) -> str:
        """In words, with its fields: "command 7: time zone Africa/Algiers"."""
        by_ntp = self.fields.get("mode") == BY_NTP
        what = "keep the clock by NTP, now" if by_ntp else "set the clock manually to"
        stream = "Master" if self.fields.get("master") == 1 else "Slave"
        return f"command {self.command}: " + self.known.words.format(what=what, stream=stream, **self.fields)


def reply(message: Message, result: int, payload: bytes = b"") -> bytes:
    record = struct.pack("@lii", message.type, message.command, result) + payload[:MAX_PAYLOAD]
    return record.ljust(TYPE_WORD + BODY, b"\0")


class Queue(NamedTuple):
    key: int

    def number(self, flags: int = 0) -> int:
        """The queue's id; negative when there is none."""
        return int(libc.msgget(self.key, flags))

    def make(self) -> None:
        """Makes the queue unless it is there."""
        if self.number(CREATE | 0o666) < 0:
            raise OSError(ctypes.get_errno(), f"Cannot create message queue {self.key}")

    def create(self) -> None:
        """Makes an empty queue, in place of one that is there."""
        self.remove()
        self.make()

    def remove(self) -> None:
        libc.msgctl(self.number(), REMOVE, None)

    def receive(self) -> Message | None:
        """The next message; None when there is none."""
        record = ctypes.create_string_buffer(TYPE_WORD + BODY)
        received = libc.msgrcv(self.number(), record, BODY, 0, NO_WAIT | TRUNCATE)
        return Message(record.raw) if received >= 0 else None

    def send(self, record: bytes) -> bool:
        """False when the queue is full or gone."""
        return bool(libc.msgsnd(self.number(), record, BODY, NO_WAIT) == 0)


REQUESTS = Queue(1111)  # from the service to the daemons
REPLIES = Queue(2222)  # the daemons' replies
