"""A FastCGI client, as a web server is one, for the benchmark and the tests."""
import contextlib
import select
import socket
import struct
from collections.abc import Mapping
from typing import Any

from simulator.fastcgi import BEGIN, END, ERRORS, HEADER, INPUT, OUTPUT, PARAMETERS, stream


def parameter(name: str, value: str) -> bytes:
    def length(text: bytes) -> bytes:
        return bytes([len(text)]) if len(text) < 128 else struct.pack(">I", len(text) | 1 << 31)

    encoded = name.encode(), value.encode()
    return b"".join(map(length, encoded)) + b"".join(encoded)


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
