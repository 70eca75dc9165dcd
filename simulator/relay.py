"""Stands between the web server and the service. It passes every byte on unchanged, one request after the
other because the service takes one at a time, and notes each request and its answer. Requests that the camera
answers itself do not reach the service: those below /camera, and all of them during an outage."""
import asyncio
import collections
import contextlib
import re
import socket
import time
from typing import Any, Protocol

from simulator import fastcgi
from simulator.texts import decoded

MAX_NOTED = 1 << 17  # bytes of a stream that are looked at; a web server sends far less in variables
FAREWELL = 5  # seconds for which a web server may go on sending after its answer


class Exchange:
    """A request, and once it has ended its answer."""

    def __init__(self) -> None:
        self.arrived = time.monotonic()
        self.number = 0  # of the request in its records
        self.streams: dict[int, bytes] = collections.defaultdict(bytes)  # by kind; at most MAX_NOTED bytes
        self.ended: set[int] = set()  # kinds of the streams that have arrived whole
        self.variables: dict[str, str] = {}
        self.method = self.url = ""
        # The answer as the client receives it: the web server turns an empty one into 500. Status and words
        # are those of a ResponseStatus document.
        self.answer: dict[str, Any] = {"http": 500, "status": 0, "words": "?", "milliseconds": 0}
        self.messages: list[str] = []  # that it caused, in words
        self.printed = ""  # by the service

    @property
    def body_start(self) -> bytes:
        return self.streams[fastcgi.INPUT]

    def note(self, kind: int, content: bytes) -> None:
        """A part of a stream; an empty one ends it."""
        self.streams[kind] += content[: MAX_NOTED - len(self.streams[kind])]
        if not content:
            self.ended.add(kind)

    def note_end(self) -> None:
        if output := self.streams[fastcgi.OUTPUT]:
            status = re.match(rb"Status: *([0-9]+)", output)
            self.answer["http"] = int(status[1]) if status else 200
        pattern = rb"<ResponseStatus .*?<statusCode>([0-9]+)<.*?<statusString>([^<]*)"
        if found := re.search(pattern, output, re.DOTALL):
            self.answer |= {"status": int(found[1]), "words": decoded(found[2])}
        self.answer["milliseconds"] = int((time.monotonic() - self.arrived) * 1000)


class Camera(Protocol):
    """What the relay asks and tells."""

    def answers(self, exchange: Exchange) -> bool:
        """Whether the camera answers a request itself."""

    async def answer(self, exchange: Exchange) -> bytes:
        """Its answer, in CGI form."""

    def begin(self, exchange: Exchange) -> None:
        """A request is about to reach the service."""

    def end(self, exchange: Exchange) -> None:
        """That request has ended."""


async def receive(peer: socket.socket, size: int) -> bytes:
    """So many bytes; fewer at the end of the stream. What the peer sent before it broke the connection is
    received, which asyncio's own streams do not promise."""
    loop, data = asyncio.get_running_loop(), b""
    with contextlib.suppress(OSError):
        while len(data) < size and (piece := await loop.sock_recv(peer, size - len(data))):
            data += piece
    return data


async def receive_record(peer: socket.socket, exchange: Exchange) -> bytes:
    """The next record, which the exchange notes; empty at the end of the stream."""
    header = await receive(peer, fastcgi.HEADER.size)
    if len(header) == fastcgi.HEADER.size:
        _, kind, exchange.number, length, padding = fastcgi.HEADER.unpack(header)
        content = await receive(peer, length + padding)
        if len(content) == length + padding:
            exchange.note(kind, content[:length])
            return header + content
    return b""


async def send(peer: socket.socket, data: bytes) -> None:
    """A peer that has gone is sent nothing."""
    with contextlib.suppress(OSError):
        await asyncio.get_running_loop().sock_sendall(peer, data)


async def pass_request(exchange: Exchange, begun: bytes, web: socket.socket, service: socket.socket) -> None:
    """Passes the request on. The web server's bytes are received also when the service takes no more of them:
    it answers before it has read a body that is too large, and the web server receives the answer when it has
    sent the body."""
    await send(service, begun)
    while record := await receive_record(web, exchange):
        await send(service, record)
    with contextlib.suppress(OSError):
        service.shutdown(socket.SHUT_WR)


class Relay:
    def __init__(self, web: socket.socket, service_path: str, camera: Camera) -> None:
        self.web = web  # listens for the web server
        self.service_path = service_path
        self.camera = camera
        self.turn = asyncio.Lock()  # of the request that is at the service
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
            with contextlib.suppress(OSError):  # a TimeoutError, too
                web.shutdown(socket.SHUT_WR)
                async with asyncio.timeout(FAREWELL):
                    while await receive(web, 65536):
                        pass

    async def serve_request(self, web: socket.socket) -> None:
        exchange, begun = Exchange(), b""
        while fastcgi.PARAMETERS not in exchange.ended:
            record = await receive_record(web, exchange)
            if not record:
                return
            begun += record
        variables = exchange.variables = fastcgi.variables(exchange.streams[fastcgi.PARAMETERS])
        exchange.method, exchange.url = variables["REQUEST_METHOD"], variables["REQUEST_URI"]
        if not self.camera.answers(exchange):
            async with self.turn:
                if not self.camera.answers(exchange):  # no outage has begun meanwhile
                    return await self.pass_on(exchange, begun, web)
        while fastcgi.INPUT not in exchange.ended:
            if not await receive_record(web, exchange):
                return
        answer = await self.camera.answer(exchange)
        await send(web, fastcgi.answer_records(exchange.number, answer))

    async def pass_on(self, exchange: Exchange, begun: bytes, web: socket.socket) -> None:
        """Has the service answer the request."""
        with socket.socket(socket.AF_UNIX) as service:
            service.connect(self.service_path)  # the camera itself listens there, also while no service runs
            service.setblocking(False)
            self.camera.begin(exchange)
            request = asyncio.create_task(pass_request(exchange, begun, web, service))
            while record := await receive_record(service, exchange):
                if fastcgi.END in exchange.streams:
                    break
                await send(web, record)
            request.cancel()
            await asyncio.wait([request])
        exchange.note_end()
        self.camera.end(exchange)
        await send(web, record)  # last, because a client that has its answer looks for the request in the log
