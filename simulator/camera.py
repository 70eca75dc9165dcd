"""The simulated camera at work: the daemons behind the queues, boots and outages, the relay in front of the
service, and the journal of it all.

States:
  up    booted, and the service runs
  due   booted and restart_at: a reboot or factory reset was answered; the outage begins at restart_at
  down  restart_at without booted: the service is stopped, and the camera answers each request with 503
boot() leads back to up. In any state, ending stops the service and then ends run().
"""
import asyncio
import contextlib
import os
import pathlib
import re
import signal
import socket
import subprocess
import time
from argparse import Namespace
from collections.abc import Callable
from datetime import datetime

from simulator import Fault, clock, daemons, device, messages, settings
from simulator.alarms import Alarms
from simulator.front import WebServer
from simulator.journal import Journal
from simulator.outside import Outside
from simulator.processes import Service
from simulator.relay import Exchange, Relay
from simulator.streams import Streams
from simulator.uploads import Uploads

SERVICE_SOCKET = "/dev/psia.socket"
ROUND = 0.01  # seconds between two looks at the queue, which cannot be waited for together with sockets
FAREWELL = 4  # seconds, a little more than a service has to end


def listen_at(path: pathlib.Path | str) -> socket.socket:
    """A socket of this user alone; one that a killed camera left there is replaced."""
    listener = socket.socket(socket.AF_UNIX)
    mask = os.umask(0o077)
    try:
        with contextlib.suppress(OSError), socket.socket(socket.AF_UNIX) as probe:
            try:
                probe.connect(str(path))
            except ConnectionRefusedError:
                if pathlib.Path(path).is_socket():
                    pathlib.Path(path).unlink()
        listener.bind(str(path))
        listener.listen(128)
    except OSError as error:
        raise Fault(f"Cannot listen at {path}: {error.strerror or error}") from error
    finally:
        os.umask(mask)
    return listener


class Camera:
    """For a process that has entered the device. Each line on the terminal starts with the prefix. `ready` is
    called once, when the service has been started."""

    def __init__(self, options: Namespace, prefix: str, ready: Callable[[], None], outside: Outside) -> None:
        self.options = options
        self.ready: Callable[[], None] | None = ready
        self.journal = Journal(prefix)
        self.watch = settings.Watch()
        self.uploads = Uploads()
        self.outside = outside
        self.alarms = Alarms(outside)
        self.streams = Streams(outside)
        self.daemons = daemons.Daemons(self.act_on, options.answer, tell=self.tell)
        listener = listen_at(SERVICE_SOCKET)
        self.service = Service(str(options.service), listener, self.journal.printed, self.journal.message)
        self.relay: Relay | None = None  # without one only the daemons work, and no service runs
        self.service_zone = ""  # set by a client; lost when the service ends
        self.zone = ""
        self.booted = self.ending = False
        self.booted_at = 0.0
        self.restart_at: float | None = None

    # The daemons.

    def tell(self, words: str, how: str) -> None:
        self.journal.message(f"{words}; answer: {how}" if how else words)

    def act_on(self, message: messages.Message) -> daemons.Deed:
        if message.command == messages.CLOCK:
            self.notice_zone_of_request()
        deed = daemons.act_on(message, self.service_zone)
        if message.command == messages.FACTORY_RESET:
            self.uploads.forget()
        if message.command in (messages.REBOOT, messages.FACTORY_RESET):
            self.restart_at = time.monotonic() + 1  # so that the client still receives its answer
        if words := self.streams.act_on(message):
            deed = daemons.Deed(words)
        self.streams.show(self.service_zone or self.zone)
        return deed

    def notice_zone_of_request(self) -> None:
        """The message holds a local time without its zone, which is that of the last PUT of the time."""
        request = self.relay.current if self.relay else None
        if request and re.match("PUT /PSIA/System/time(?!/)", f"{request.method} {request.url}", re.I):
            zone = re.search(b"<timeZone>([^<]*)<", request.body_start)
            self.service_zone = (zone[1].decode(errors="replace") if zone else "") or "UTC0"

    def look_at_uploads(self) -> None:
        if words := self.uploads.news():
            self.journal.message(words)

    def changes(self) -> list[str]:
        """Of the settings, in words."""
        changes = self.watch.changes()
        if changes:
            self.streams.show(self.service_zone or self.zone)
        return changes

    def hear_from_outside(self) -> None:
        for told in self.outside.received():
            if "watches" in told:
                self.streams.note(**told)
            else:
                self.journal.event(**told)

    def close_sensor(self) -> None:
        now = datetime.fromisoformat(clock.shown(self.service_zone))
        words = "nothing follows: the camera is down" if self.is_down() else self.alarms.sensor_closes(now)
        self.journal.event(f"the sensor's contact closes: {words}")

    # Boots.

    def is_down(self) -> bool:
        return self.restart_at is not None and not self.booted

    def boot(self) -> None:
        """Applies the stored settings to the device."""
        details = []

        def attempt(step: Callable[[], object]) -> None:
            try:
                details.append(step())
            except Fault as fault:
                details.append(str(fault))

        self.daemons.forget()
        self.service_zone = ""
        attempt(self.uploads.apply)
        attempt(device.apply_addressing)
        self.zone = next((str(zone or "") for (zone,) in settings.query("select TimeZone from Network")), "")
        if not clock.take_zone(self.zone):
            details.append(f'there is no zone file for "{self.zone}", the camera\'s clock shows UTC')
        if not clock.restart_uptime():
            details.append("the kernel has no time namespaces here: the time since start is the machine's")
        if not clock.faketime_library():
            details.append("libfaketime is missing: the clock is always the machine's")
        self.alarms.forget()
        attempt(lambda: self.streams.boot(self.zone))
        self.booted_at, self.booted, self.restart_at = time.monotonic(), True, None
        words = f"the camera boots; eth0 has {device.live_address()}, the zone is {self.zone}"
        self.journal.event(words, [str(line) for line in details if line] + self.watch.changes())

    def tend_service(self) -> None:
        """Starts the service after a boot, or when it has ended by itself, and stops it for a restart."""
        now = time.monotonic()
        self.daemons.refuses = self.ending or self.is_down()
        if self.service.runs():
            if self.ending:
                self.stop_service()
            elif self.restart_at is not None and now >= self.restart_at and self.booted:
                self.booted = False
                self.journal.event(f"the camera goes down and is back in {self.options.boot} s")
                self.streams.stop()
                self.stop_service()
        elif self.ending:
            pass
        elif not self.booted:
            if self.restart_at is None or now >= self.restart_at + self.options.boot:
                self.boot()
                self.service.start()
                if self.ready:
                    self.ready()
                    self.ready = None
        elif now >= self.service.ended_at + 1:
            self.service.start()

    def stop_service(self) -> None:
        if self.relay and self.relay.current:
            self.daemons.answer_all_waiting()
        self.service.stop()

    def reset(self) -> None:
        """The state of the start: factory settings and the rows and rules of the command line, without an
        outage."""
        self.journal.event("factory settings, asked for over /camera/reset")
        self.service.end()
        self.watch.close()
        device.reset()
        for statement in self.options.set:
            settings.execute(statement)
        self.uploads.forget()
        self.daemons.rules = list(self.options.answer)
        self.watch = settings.Watch()  # the database is a new file
        self.boot()
        self.service.start()

    # The rounds.

    def end(self) -> None:
        self.ending = True

    async def run(self, web_server: WebServer | None, shell: subprocess.Popen[bytes] | None) -> int:
        """Runs until SIGINT, SIGTERM or SIGHUP, until a client stops it, or until the web server or the shell
        has ended. Gives the exit status."""
        loop = asyncio.get_running_loop()
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            loop.add_signal_handler(number, self.end)
        accepting = asyncio.create_task(self.relay.run()) if self.relay else None
        give_up_at: float | None = None  # ends the wait for a client that does not read its answer
        try:
            while True:
                self.step()
                if web_server and web_server.has_ended():
                    self.journal.event("the web server has ended")
                    return 1
                if shell and shell.poll() is not None:
                    return 0
                if self.ending and give_up_at is None:
                    give_up_at = time.monotonic() + FAREWELL
                if give_up_at is not None and not self.service.runs():
                    if not (self.relay and self.relay.connections) or time.monotonic() > give_up_at:
                        return 0
                await asyncio.sleep(ROUND)
        except Fault as fault:
            self.journal.event(str(fault))
            return 1
        finally:
            self.streams.stop()
            if accepting:
                accepting.cancel()

    def end_request(self, exchange: Exchange) -> None:
        """Everything that the request caused has happened by now; the rest is to record it."""
        self.service.step()
        self.daemons.step()
        self.look_at_uploads()
        self.journal.end_request(exchange, self.changes())

    def step(self) -> None:
        self.hear_from_outside()
        self.service.step()
        self.daemons.step()
        if not self.relay or not self.relay.current:
            self.look_at_uploads()
            for change in self.changes():
                self.journal.event(change)
        if self.relay:
            self.tend_service()
        elif self.restart_at is not None and time.monotonic() >= self.restart_at:
            self.boot()
