"""The control messages that the service and the camera's daemons exchange over two System V message queues:
their layout, their fields, and what they are in words. Offsets count from the start of the record as it is on
the camera, where the type word has 4 bytes; on a 64-bit machine it has 8."""
import ctypes
import errno
import struct
from typing import NamedTuple

from simulator.texts import decoded

# What the service asks for.
PICTURE, ENCODER, AUDIO, CLOCK, TIME_ZONE, REBOOT, FACTORY_RESET, EXPORT = 1, 2, 3, 6, 7, 8, 10, 11
ADDRESSING, NAME_SERVERS, RTSP_PORT = 31, 33, 37

DONE, BUSY, FAILED = 0, 1, 2  # results of a reply
PAYLOAD = 12  # offset of the first field
BY_NTP = 2  # mode of CLOCK; any other: set by hand
MASTER = 1  # stream of ENCODER; any other: Slave

TYPE_WORD = struct.calcsize("@l")
BODY = 4112  # bytes of a record behind its type word
MAX_PAYLOAD = BODY - 9  # of a reply: command and result come before it, a zero byte behind
CREATE, NO_WAIT, TRUNCATE, REMOVE = 0o1000, 0o4000, 0o10000, 0

libc = ctypes.CDLL(None, use_errno=True)
libc.msgrcv.argtypes = [ctypes.c_int, ctypes.c_void_p, ctypes.c_size_t, ctypes.c_long, ctypes.c_int]
libc.msgsnd.argtypes = [ctypes.c_int, ctypes.c_char_p, ctypes.c_size_t, ctypes.c_int]


class Field(NamedTuple):
    name: str
    offset: int
    size: int = 0  # bytes of a text; 0: a number


class Command(NamedTuple):
    name: str
    words: str  # what it tells the daemons, with its fields
    fields: tuple[Field, ...] = ()


TIME = tuple(
    Field(name, 148 + 4 * i) for i, name in enumerate(("year", "month", "day", "hour", "minute", "second"))
)
COMMANDS = {
    PICTURE: Command(
        "picture", "picture settings changed, video source {source}", (Field("source", PAYLOAD),)
    ),
    ENCODER: Command("encoder", "encoder settings changed, {stream} stream", (Field("master", 16),)),
    AUDIO: Command("audio", "audio settings changed"),
    CLOCK: Command(
        "time",
        "{what} {year:04d}-{month:02d}-{day:02d} {hour:02d}:{minute:02d}:{second:02d}, "
        "NTP server {server}, every {interval} min",
        (Field("mode", PAYLOAD), Field("server", 16, 128), Field("interval", 144), *TIME),
    ),
    TIME_ZONE: Command("time zone", "time zone {zone}", (Field("zone", PAYLOAD, 256),)),
    REBOOT: Command("reboot", "reboot"),
    FACTORY_RESET: Command("factory reset", "restore the factory settings"),
    EXPORT: Command("export", "export the settings"),
    ADDRESSING: Command("addressing", "network addressing changed"),
    NAME_SERVERS: Command("name servers", "name servers {servers}", (Field("servers", PAYLOAD, 256),)),
    RTSP_PORT: Command("RTSP port", "RTSP port changed"),
}
UNKNOWN = Command("unknown", "unknown to the daemons")


class Message:
    def __init__(self, record: bytes) -> None:
        self.type: int = struct.unpack_from("@l", record)[0]  # the sender's process id
        self.body = record[TYPE_WORD:]
        self.command = self.number(4)

    def number(self, offset: int) -> int:
        value: int = struct.unpack_from("<i", self.body, offset - 4)[0]
        return value

    def text(self, offset: int, size: int) -> str:
        """The zero-terminated text of at most `size` bytes."""
        return decoded(self.body[offset - 4 : offset - 4 + size].split(b"\0")[0])

    def fields(self) -> dict[str, int | str]:
        fields = COMMANDS.get(self.command, UNKNOWN).fields
        return {name: self.text(place, size) if size else self.number(place) for name, place, size in fields}

    def describe(self) -> str:
        """In words, with its fields: "command 7: time zone Africa/Algiers"."""
        known = self.fields()
        what = "keep the clock by NTP, now" if known.get("mode") == BY_NTP else "set the clock manually to"
        stream = "Master" if known.get("master") == MASTER else "Slave"
        words = COMMANDS.get(self.command, UNKNOWN).words.format(what=what, stream=stream, **known)
        return f"command {self.command}: {words}"

    def contents(self, sender: int) -> str:
        """The whole record: "message 2 encoder: master = 1"; "byte 200 = 7" for what belongs to no field."""
        rest = bytearray(self.body)
        rest[0:4] = bytes(4)
        told = [] if self.type == sender else [f"type = {self.type}"]
        for name, offset, size in COMMANDS.get(self.command, UNKNOWN).fields:
            value = self.text(offset, size) if size else self.number(offset)
            told.append(f"{name} = {value}")
            length = len(str(value).encode(errors="surrogateescape")) if size else 4
            rest[offset - 4 : offset - 4 + length] = bytes(length)
        told += [f"byte {offset + 4} = {byte}" for offset, byte in enumerate(rest) if byte]
        name = COMMANDS.get(self.command, UNKNOWN).name
        return f"message {self.command} {name}" + (": " if told else "") + ", ".join(told)


def reply(message: Message, result: int, payload: bytes = b"") -> bytes:
    """The record by which a daemon answers."""
    record = struct.pack("@lii", message.type, message.command, result) + payload[:MAX_PAYLOAD]
    return record.ljust(TYPE_WORD + BODY, b"\0")


class Queue:
    def __init__(self, key: int) -> None:
        self.key = key

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
        while libc.msgrcv(self.number(), record, BODY, 0, NO_WAIT | TRUNCATE) < 0:
            if ctypes.get_errno() != errno.EINTR:
                return None
        return Message(record.raw)

    def send(self, record: bytes) -> bool:
        """False when the queue is full or gone."""
        while libc.msgsnd(self.number(), record, BODY, NO_WAIT) != 0:
            if ctypes.get_errno() != errno.EINTR:
                return False
        return True


REQUESTS = Queue(1111)  # from the service to the daemons
REPLIES = Queue(2222)  # the daemons' replies
