"""Stands between the web server and the service. It passes every byte on unchanged, one request after the
other because the service takes one at a time, and notes each request and its answer."""
import asyncio
import contextlib
import socket
from collections.abc import Awaitable

from simulator import fastcgi
from simulator.camera import SERVICE_SOCKET
from simulator.control import Control
from simulator.journal import Exchange

PATIENCE = 4  # seconds that clients have to read their answers when the camera has ended
FAREWELL = 5  # seconds for which a web server may go on sending after its answer


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
    def __init__(self, web: socket.socket, control: Control) -> None:
        self.web = web  # listens for the web server
        self.control = control
        self.turn = asyncio.Lock()  # of the request that is at the service
        self.connections: set[asyncio.Task[None]] = set()  # each one request that is not answered yet

    async def run(self, camera: Awaitable[None]) -> None:
        """Passes requests until the camera has ended; clients can still read their answers then."""
        accepting = asyncio.create_task(self.accept())
        await camera
        accepting.cancel()
        if self.connections:
            await asyncio.wait(self.connections, timeout=PATIENCE)

    async def accept(self) -> None:
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
        if not self.control.answers(exchange):
            async with self.turn:
                if not self.control.answers(exchange):  # no outage has begun meanwhile
                    return await self.pass_on(exchange, begun, web)
        while fastcgi.INPUT not in exchange.ended:
            if not await receive_record(web, exchange):
                return
        answer = await self.control.answer(exchange)
        await send(web, fastcgi.answer_records(exchange.number, answer))

    async def pass_on(self, exchange: Exchange, begun: bytes, web: socket.socket) -> None:
        with socket.socket(socket.AF_UNIX) as service:
            service.connect(str(SERVICE_SOCKET))  # the camera listens there, also while no service runs
            service.setblocking(False)
            self.control.journal.request = exchange
            request = asyncio.create_task(pass_request(exchange, begun, web, service))
            while record := await receive_record(service, exchange):
                if fastcgi.END in exchange.streams:
                    break
                await send(web, record)
            request.cancel()
            await asyncio.wait([request])
        exchange.note_end()
        self.control.camera.end_request(exchange)
        await send(web, record)  # last, because a client that has its answer looks for the request in the log
