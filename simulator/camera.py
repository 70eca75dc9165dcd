"""The simulated camera at work: the service, the daemons behind the queues, boots and outages, and the
journal of it all.

States:
  up    the service runs; tend_service() restarts it when it ends by itself
  due   up, and restart_at is set: a reboot or factory reset was answered; the outage begins at restart_at
  down  the service is stopped, and the camera answers each request with 503; boot() leads back to up
In any state, end() stops the service and then ends run().
"""
import asyncio
import errno
import math
import os
import pathlib
import re
import socket
import subprocess
import time
from argparse import Namespace
from collections.abc import Callable
from datetime import datetime
from typing import IO

from simulator import Fault, attempt, clock, daemons, device, fastcgi, messages, settings
from simulator.alarms import Alarms
from simulator.journal import Exchange, Journal
from simulator.front import WebServer
from simulator.processes import start
from simulator.streams import Streams
from simulator.texts import decoded, lines_of

SERVICE_SOCKET = pathlib.Path("/dev/psia.socket")
UPLOAD = device.EXCHANGE / "psia_config.dat"  # where the service stores settings that a client uploads
ROUND = 0.01  # seconds between two looks at the queue, which cannot be waited for together with sockets


def listen_at(path: pathlib.Path) -> socket.socket:
    """A socket of this user alone; one that a killed camera left there is replaced."""
    listener = socket.socket(socket.AF_UNIX)
    with attempt(f"listen at {path}"):
        with socket.socket(socket.AF_UNIX) as probe:
            if probe.connect_ex(str(path)) == errno.ECONNREFUSED and path.is_socket():
                path.unlink()
        listener.bind(str(path))
        path.chmod(0o600)  # nobody can connect before it listens
        listener.listen(128)
    return listener


def outcome(step: Callable[[], str | None]) -> str:
    """The words that a step gives, or why it failed."""
    try:
        return step() or ""
    except Fault as fault:
        return str(fault)


def take_upload() -> str:
    """At a boot. Gives words about it, unless there is none or it is refused."""
    if outcome(lambda: settings.check(UPLOAD)):
        return ""
    failure = outcome(lambda: settings.take_rows(UPLOAD))
    UPLOAD.unlink(missing_ok=True)
    return "the uploaded settings " + (f"could not be taken: {failure}" if failure else "are in effect")


def read_waiting(stream: IO[bytes] | None) -> str:
    """What can be read without waiting."""
    return decoded((stream and stream.read()) or b"")  # None: nothing now


class Service:
    def __init__(self, binary: pathlib.Path, journal: Journal) -> None:
        self.binary = binary
        self.journal = journal
        self.listener = listen_at(SERVICE_SOCKET)  # becomes its standard input
        self.process: subprocess.Popen[bytes] | None = None
        self.kill_at = math.inf
        self.ended_at = 0.0

    def start(self) -> None:
        pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "bufsize": 0}
        self.process = start([str(self.binary)], stdin=self.listener, env=clock.environment(), **pipes)
        for stream in filter(None, (self.process.stdout, self.process.stderr)):
            os.set_blocking(stream.fileno(), False)
        self.kill_at = math.inf
        self.journal.message(f"service started, process {self.process.pid}")

    def stop(self, patience: float = 3) -> None:
        """Tells it to end. step() notices that it has, and kills it after `patience` seconds."""
        if self.process and self.kill_at == math.inf:
            self.process.terminate()
        self.kill_at = min(self.kill_at, time.monotonic() + patience)

    def end(self) -> None:
        self.stop(patience=0.25)
        while self.process:
            self.step()
            time.sleep(0.002)

    def step(self) -> None:
        if not self.process:
            return
        if time.monotonic() >= self.kill_at:
            self.process.kill()
        status = self.process.poll()
        if text := read_waiting(self.process.stdout):
            self.journal.printed(text)
        for line in lines_of(read_waiting(self.process.stderr)):
            self.journal.message(f"service reported: {line}")
        if status is not None:
            self.process = None
            self.ended_at = time.monotonic()
            how = f"by signal {-status}" if status < 0 else f"with exit status {status}"
            self.journal.message(f"service ended {how}")


class Camera:
    """For a process that has entered the device."""

    def __init__(self, options: Namespace, streams: Streams) -> None:
        self.options = options
        self.journal = Journal(options.prefix)
        self.streams = streams
        self.daemons = daemons.Daemons(self.act_on, tell=self.tell)
        self.service = Service(options.service, self.journal)
        self.upload: tuple[int, int] | None = None  # changes with every one
        self.ending = False
        self.begin()

    # The daemons.

    def tell(self, words: str, how: str) -> None:
        self.journal.message(f"{words}; answer: {how}" if how else words)

    def act_on(self, message: messages.Message) -> str:
        if message.command == messages.CLOCK:
            self.notice_zone_of_request()
        remark = daemons.act_on(message, self.service_zone)
        if message.command == messages.FACTORY_RESET:
            UPLOAD.unlink(missing_ok=True)
        if message.command in (messages.REBOOT, messages.FACTORY_RESET):
            self.restart_at = time.monotonic() + 1  # so that the client still receives its answer
        remark = self.streams.act_on(message) or remark
        self.streams.show(self.service_zone or self.zone)
        return remark

    def notice_zone_of_request(self) -> None:
        """The message holds a local time without its zone, which is that of the last PUT of the time."""
        request = self.journal.request
        if request and re.match("PUT /PSIA/System/time(?!/)", f"{request.method} {request.url}", re.I):
            zone = re.search(b"<timeZone>([^<]*)<", request.streams[fastcgi.INPUT])
            self.service_zone = (zone[1].decode(errors="replace") if zone else "") or "UTC0"

    def close_sensor(self) -> None:
        now = datetime.fromisoformat(clock.shown(self.service_zone))
        words = self.alarms.sensor_closes(now) if self.up else "nothing follows: the camera is down"
        self.journal.event(f"the sensor's contact closes: {words}")

    def look_at_upload(self) -> None:
        """Tells once of each whether it is good."""
        found = UPLOAD.stat() if UPLOAD.exists() else None
        before, self.upload = self.upload, found and (found.st_ino, found.st_mtime_ns)
        if self.upload in (None, before):
            return
        refusal = outcome(lambda: settings.check(UPLOAD))
        verdict = f"refused: {refusal}" if refusal else "good; they take effect with the next boot"
        self.journal.message(f"the uploaded settings are {verdict}")

    def changes(self) -> list[str]:
        changes = self.watch.changes()
        if changes:
            self.streams.show(self.service_zone or self.zone)
        return changes

    # Boots.

    def boot(self) -> None:
        """Applies the stored settings to the device."""
        self.daemons.forget()
        self.alarms = Alarms(self.streams.pipe)
        self.service_zone = ""  # set by a client; lost when the service ends
        details = [outcome(take_upload), outcome(device.apply_addressing)]
        self.zone = next((str(zone or "") for (zone,) in settings.query("select TimeZone from Network")), "")
        details += [clock.take_zone(self.zone), clock.restart_uptime()]
        if not clock.faketime_library():
            details.append("libfaketime is missing: the clock is always the machine's")
        details.append(outcome(lambda: self.streams.boot(self.zone)))
        self.booted_at, self.up, self.restart_at = time.monotonic(), True, math.inf
        words = f"the camera boots; eth0 has {device.live_address() or 'no address'}, the zone is {self.zone}"
        self.journal.event(words, [line for line in details if line] + self.watch.changes())

    def tend_service(self) -> None:
        """Stops the service for a restart, and starts it after the boot or when it has ended by itself."""
        now = time.monotonic()
        if self.up and now >= self.restart_at and not self.ending:
            self.up = False
            self.journal.event(f"the camera goes down and is back in {self.options.boot} s")
            self.streams.stop()
        start_at = self.service.ended_at + 1 if self.up else self.restart_at + self.options.boot
        if not self.service.process and not self.ending and now >= start_at:
            if not self.up:
                self.boot()
            self.service.start()
        self.daemons.refuses = self.ending or not self.up
        if self.service.process and self.daemons.refuses:
            if self.journal.request:
                self.daemons.answer_all_waiting()
            self.service.stop()

    def begin(self) -> None:
        """A start, with the rows and rules of the command line."""
        for statement in self.options.set:
            settings.execute(statement)
        self.daemons.rules = list(self.options.answer)
        self.watch = settings.Watch()
        self.boot()

    def reset(self) -> None:
        """Factory settings, and all else as at the start, without an outage."""
        self.journal.event("factory settings, asked for over /camera/reset")
        self.service.end()
        self.watch.database.close()
        device.reset()  # makes new databases
        self.begin()
        self.service.start()

    # The rounds.

    async def run(self, web_server: WebServer | None) -> None:
        """Runs until end() is called."""
        while not self.ending or self.service.process:
            await asyncio.sleep(ROUND)  # first: a service that has just started is not ready for a signal
            self.step()
            self.tend_service()
            if web_server and web_server.process.poll() is not None:
                raise Fault("The web server has ended.")

    def run_beside(self, shell: subprocess.Popen[bytes]) -> None:
        """Runs without the service, until the shell or end()."""
        while not self.ending and shell.poll() is None:
            self.step()
            if time.monotonic() >= self.restart_at:
                self.boot()
            time.sleep(ROUND)

    def step(self) -> None:
        for words in self.streams.heard():
            self.journal.event(words)
        self.service.step()
        self.daemons.step()
        if not self.journal.request:
            self.look_at_upload()
            for change in self.changes():
                self.journal.event(change)

    def end_request(self, exchange: Exchange) -> None:
        """Everything that the request caused has happened by now; the rest is to record it."""
        self.service.step()
        self.daemons.step()
        self.look_at_upload()
        self.journal.end_request(exchange, self.changes())

    def end(self, *_: object) -> None:
        """Also as the handler of a signal."""
        self.ending = True
