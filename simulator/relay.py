"""Stands between the web server and the service. It passes every byte on unchanged, one request after the
other because the service takes one at a time, and notes each request and its answer. Requests that the camera
answers itself do not reach the service: those below /camera, and all of them during an outage."""
import asyncio
import contextlib
import re
import socket
import time
from collections.abc import Callable
from dataclasses import dataclass, field
from typing import NamedTuple, Protocol

from simulator import fastcgi

MAX_NOTED = 1 << 16  # bytes of an answer, or of variables, that are looked at
BODY_START = 4096
FAREWELL = 5  # seconds for which a web server may go on sending after its answer


@dataclass
class Exchange:
    """A request, and once it has ended its answer."""

    arrived: float = field(default_factory=time.monotonic)
    method: str = ""
    url: str = ""
    authorization: str = ""  # the header's value, like the two below
    host: str = ""
    origin: str = ""
    body_start: bytes = b""  # at most BODY_START bytes
    body_size: int = 0
    input_ended: bool = False
    http_status: int = 500  # as the client receives it; the web server turns an empty answer into 500
    status_code: int = 0  # of a ResponseStatus document; 0 for any other answer
    milliseconds: int = 0

    def note_variables(self, variables: dict[str, str]) -> None:
        self.method, self.url = variables.get("REQUEST_METHOD", ""), variables.get("REQUEST_URI", "")
        self.authorization = variables.get("HTTP_AUTHORIZATION", "")
        self.host, self.origin = variables.get("HTTP_HOST", ""), variables.get("HTTP_ORIGIN", "")

    def note_body(self, record: "Record | None") -> None:
        if record and record.kind == fastcgi.INPUT:
            self.body_start += record.content[: BODY_START - len(self.body_start)]
            self.body_size += len(record.content)
            self.input_ended = not record.content

    def note_answer(self, answer: bytes) -> None:
        """Takes an answer in CGI form, or its start. One without header lines changes nothing."""
        header_end = re.search(rb"\r\n\r\n|\n\n", answer)
        if header_end:
            status = re.match(rb"Status: *([0-9]+)", answer)
            self.http_status = int(status[1]) if status else 200
            body = answer[header_end.end() :]
            code = re.search(rb"<ResponseStatus .*?<statusCode>([0-9]+)", body, re.DOTALL)
            self.status_code = int(code[1]) if code else 0


class OwnAnswers(Protocol):
    def answers(self, exchange: Exchange) -> bool:
        """Whether the camera answers a request itself."""

    async def answer(self, exchange: Exchange) -> bytes:
        """Its answer, in CGI form."""


Note = Callable[[Exchange], None]


class Record(NamedTuple):
    kind: int
    request: int
    content: bytes
    whole: bytes


async def receive(peer: socket.socket, size: int) -> bytes:
    """So many bytes; fewer at the end of the stream. What the peer sent before it broke the connection is
    received, which asyncio's own streams do not promise."""
    loop, data = asyncio.get_running_loop(), b""
    with contextlib.suppress(OSError):
        while len(data) < size and (piece := await loop.sock_recv(peer, size - len(data))):
            data += piece
    return data


async def receive_record(peer: socket.socket) -> Record | None:
    """None at the end of the stream."""
    header = await receive(peer, fastcgi.HEADER.size)
    if len(header) < fastcgi.HEADER.size:
        return None
    _, kind, request, length, padding = fastcgi.HEADER.unpack(header)
    content = await receive(peer, length + padding)
    if len(content) < length + padding:
        return None
    return Record(kind, request, content[:length], header + content)


async def send(peer: socket.socket, data: bytes) -> None:
    """A peer that has gone is sent nothing."""
    with contextlib.suppress(OSError):
        await asyncio.get_running_loop().sock_sendall(peer, data)


def shut(peer: socket.socket) -> None:
    with contextlib.suppress(OSError):
        peer.shutdown(socket.SHUT_WR)


async def pass_request(exchange: Exchange, begun: bytes, web: socket.socket, service: socket.socket) -> None:
    """Passes the request on. The web server's bytes are received also when the service takes no more of them:
    it answers before it has read a body that is too large, and the web server receives the answer when it has
    sent the body."""
    await send(service, begun)
    while record := await receive_record(web):
        exchange.note_body(record)
        await send(service, record.whole)
    shut(service)


class Relay:
    def __init__(
        self, web: socket.socket, service_path: str, own: OwnAnswers, begin: Note, end: Note
    ) -> None:
        self.web = web  # listens for the web server
        self.service_path = service_path
        self.own = own
        self.begin = begin  # is told that a request is about to reach the service
        self.end = end  # is told that it has ended there
        self.turn = asyncio.Lock()  # of the request that is at the service
        self.current: Exchange | None = None  # that request
        self.connections: set[asyncio.Task[None]] = set()  # each one request that is not answered yet

    async def run(self) -> None:
        """Accepts the web server's connections."""
        self.web.setblocking(False)
        while True:
            web, _ = await asyncio.get_running_loop().sock_accept(self.web)
            connection = asyncio.create_task(self.serve(web))
            self.connections.add(connection)
            connection.add_done_callback(self.connections.discard)

    async def serve(self, web: socket.socket) -> None:
        with web:
            web.setblocking(False)
            await self.serve_request(web)
            # The web server may lose an answer if the connection is closed while it still sends.
            shut(web)
            with contextlib.suppress(asyncio.TimeoutError):
                async with asyncio.timeout(FAREWELL):
                    while await receive(web, 65536):
                        pass

    async def serve_request(self, web: socket.socket) -> None:
        exchange = Exchange()
        begun = parameters = b""
        while True:
            record = await receive_record(web)
            if not record:
                return
            begun += record.whole
            if record.kind == fastcgi.PARAMETERS:
                if not record.content:
                    break
                parameters += record.content[: MAX_NOTED - len(parameters)]
        exchange.note_variables(fastcgi.variables(parameters))
        if not self.own.answers(exchange):
            async with self.turn:
                if await self.is_served(exchange, begun, web):
                    return
        while record and not exchange.input_ended:
            record = await receive_record(web)
            exchange.note_body(record)
        if record:
            answer = await self.own.answer(exchange)
            await send(web, fastcgi.answer_records(record.request, answer))

    async def is_served(self, exchange: Exchange, begun: bytes, web: socket.socket) -> bool:
        """Whether the service has served the request; otherwise the camera has to."""
        if self.own.answers(exchange):
            return False
        with socket.socket(socket.AF_UNIX) as service:
            try:
                service.connect(self.service_path)
            except OSError:
                return False
            service.setblocking(False)
            self.current = exchange
            self.begin(exchange)
            request = asyncio.create_task(pass_request(exchange, begun, web, service))
            answer = b""
            while record := await receive_record(service):
                if record.kind == fastcgi.OUTPUT:
                    answer += record.content[: MAX_NOTED - len(answer)]
                await send(web, record.whole)
            request.cancel()
            await asyncio.wait([request])
        exchange.milliseconds = int((time.monotonic() - exchange.arrived) * 1000)
        exchange.note_answer(answer)
        self.current = None
        self.end(exchange)
        return True
