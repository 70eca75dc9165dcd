"""FastCGI: the records, and a client, as a web server is one."""
import collections
import contextlib
import io
import select
import socket
import struct
from collections.abc import Mapping
from typing import Any

from simulator.texts import decoded

BEGIN, END, PARAMETERS, INPUT, OUTPUT, ERRORS = 1, 3, 4, 5, 6, 7
HEADER = struct.Struct(">BBHHBx")  # version, kind, request, bytes of content, bytes of padding


def stream(kind: int, content: bytes, end: bool = True, request: int = 1) -> bytes:
    """The records of a stream; an empty one ends it."""
    pieces = [content[i : i + 65535] for i in range(0, len(content), 65535)] + [b""] * end
    return b"".join(HEADER.pack(1, kind, request, len(piece), 0) + piece for piece in pieces)


def parameter(name: str, value: str) -> bytes:
    def length(text: bytes) -> bytes:
        return bytes([len(text)]) if len(text) < 128 else struct.pack(">I", len(text) | 1 << 31)

    encoded = name.encode(), value.encode()
    return b"".join(map(length, encoded)) + b"".join(encoded)


def variables(parameters: bytes) -> dict[str, str]:
    """The variables of a whole parameter stream. One that is missing is empty."""
    found: dict[str, str] = collections.defaultdict(str)
    rest = io.BytesIO(parameters)

    def length() -> int:
        first = rest.read(1)
        return int.from_bytes(first if first < b"\x80" else first + rest.read(3)) & 0x7FFFFFFF

    while rest.tell() < len(parameters):
        name, value = (decoded(rest.read(size)) for size in (length(), length()))
        found[name] = value
    return found


def answer_records(request: int, text: bytes) -> bytes:
    return stream(OUTPUT, text, False, request) + stream(END, bytes(8), False, request)


class Connection:
    """One connection to the socket at a path, on which a request is sent at once."""

    def __init__(self, path: str, variables: Mapping[str, str], body: bytes, **options: Any) -> None:
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(30)
        self.socket.connect(path)
        self.send(variables, body, **options)

    def send(
        self,
        variables: Mapping[str, str],
        body: bytes,
        finished: bool = True,
        keep: bool = False,
        first: int | None = None,
    ) -> None:
        """Sends a request. `finished`: the end of the body, too. `keep`: the service is to leave the
        connection open. `first`: only so many bytes are sent; `send_rest` sends the others."""
        parameters = b"".join(parameter(name, value) for name, value in variables.items())
        request = stream(BEGIN, struct.pack(">HB5x", 1, keep), end=False)
        request += stream(PARAMETERS, parameters) + stream(INPUT, body, finished)
        self.rest = b"" if first is None else request[first:]
        self.send_bytes(request[:first])

    def send_rest(self) -> None:
        self.send_bytes(self.rest)

    def send_bytes(self, data: bytes) -> None:
        with contextlib.suppress(BrokenPipeError):  # the service need not read a request that it refuses
            self.socket.sendall(data)

    def answers_within(self, seconds: float) -> bool:
        return bool(select.select([self.socket], [], [], seconds)[0])

    def receive(self) -> tuple[str, str]:
        """What was sent on the output stream, and on the error stream."""
        sent = {OUTPUT: b"", ERRORS: b"", END: b""}
        with self.socket.makefile("rb") as records:
            while header := records.read(HEADER.size):
                _, kind, _, length, padding = HEADER.unpack(header)
                sent[kind] += records.read(length + padding)[:length]
                if kind == END:
                    return sent[OUTPUT].decode(), sent[ERRORS].decode()
        raise AssertionError(f"The peer closed without an end of the request, after {sent[OUTPUT]!r}")
