"""The camera for people and test programs, or several: scripts/run starts it."""
import asyncio
import contextlib
import errno
import fcntl
import functools
import ipaddress
import os
import pathlib
import signal
import socket
import sys
import time
from argparse import Namespace
from collections.abc import Callable

from simulator import Fault, device, front, options
from simulator.camera import Camera, listen_at
from simulator.control import Control
from simulator.processes import die_with, start
from simulator.relay import Relay
from simulator.runs import SHELL, announce, claim_ready_file, greet, join_shell, running, write_ready_file
from simulator.streams import Streams

PORTS = range(8080, 8181)  # that are tried without --port
END_SIGNALS = {signal.SIGINT, signal.SIGTERM, signal.SIGHUP}
ANSWERS = signal.SIGRTMIN  # by which one of several cameras tells that it does; each counts
WELCOME = """
Accounts of the factory, name:password, from the most to the least privileged:
  admin:admin  operator:operator  viewer:viewer  guest:guest  and anonymous with an empty password

To try in another terminal:
  curl -u admin:admin '{url}/PSIA/index'
  curl -u admin:admin '{url}/PSIA/System/Audio/channels/1'
  curl -u admin:admin -X PUT -d '<AudioChannel><enabled>false</enabled></AudioChannel>' \
'{url}/PSIA/System/Audio/channels/1'
  scripts/run --shell --port {port}

Each request appears here with the rows it changed and its messages to the camera's daemons.
The documents below /PSIA/Custom/Event appear here too: they go to the service's standard output,
and the web server answers the client with an error. Ctrl-C ends everything.
"""
REACHABLE = """
OTHER MACHINES CAN REACH THIS at {address}. Everybody there can log in with the accounts below, as
long as these have the factory's passwords, and those travel unencrypted."""


def main(arguments: list[str]) -> int:
    if "--help" in arguments:
        print(pathlib.Path(__file__).with_name("help.txt").read_text(), end="")
        return 0
    given = options.read(arguments)
    if not os.access(given.service, os.X_OK):
        raise Fault(f"Cannot run {given.service}. Build the service first.")
    given.service = given.service.absolute()
    if given.shell:
        for port, process in running(given.run_directory).items():
            if given.port in (None, port):
                join_shell(process, given.service)
        if given.port is not None:
            raise Fault(f"No camera of this folder and user runs on port {given.port}.")
        print("No camera runs: the shell is inside one with its daemons only.", flush=True)
    pin_own_zone()
    for number in END_SIGNALS:  # until a camera has handlers of its own, so that nothing is left of it
        signal.signal(number, lambda *_: sys.exit(0))
    listeners = [] if given.socket or given.shell else open_ports(given)
    given.ready_file = given.ready_file and claim_ready_file(given.ready_file)
    ready = functools.partial(tell_ready, given, listeners)
    if given.cameras > 1:
        return run_cameras(given, listeners, ready)
    return run_camera(given, listeners[0] if listeners else None, ready)


def pin_own_zone() -> None:
    """Keeps the machine's time zone for the times on the terminal; /etc/localtime becomes the camera's."""
    zone = os.path.realpath("/etc/localtime")
    os.environ.setdefault("TZ", f":{zone}" if zone != "/etc/localtime" and os.path.exists(zone) else "UTC0")
    time.tzset()


def open_ports(given: Namespace) -> list[socket.socket]:
    firsts = PORTS if given.port is None else [given.port]
    for first in firsts:
        listeners: list[socket.socket] = []
        try:
            for number in range(given.cameras):
                port = first and first + number
                listeners.append(front.listen(given.listen, port))
        except OSError as error:
            if error.errno != errno.EADDRINUSE:
                where = front.authority(given.listen, port)
                raise Fault(f"Cannot listen at {where}: {os.strerror(error.errno or 0)}") from error
            continue
        if first != firsts[0]:
            print(f"Port {firsts[0]} is taken; using {first}.", flush=True)
        return listeners
    advice = " Leave --port out to have a free one chosen." if given.port is not None else ""
    raise Fault(f"Port {port} is taken.{advice}")


def tell_ready(given: Namespace, listeners: list[socket.socket]) -> None:
    """Shows the welcome and writes the ready file, once all cameras answer."""
    ports = [listener.getsockname()[1] for listener in listeners]
    urls = [f"http://{front.authority(front.reachable(given.listen), port)}" for port in ports]
    print()
    for number, url in enumerate(urls, 1):
        own = device.Identity(number)
        print(f"{own.name}, serial number {own.serial_number}: page {url}/  management service {url}/PSIA")
    if not ipaddress.ip_address(given.listen).is_loopback:
        print(REACHABLE.format(address=given.listen))
    print(WELCOME.format(url=urls[0], port=ports[0]), flush=True)
    if given.ready_file:
        write_ready_file(given.ready_file, "".join(f"{url}\n" for url in urls))


def run_cameras(given: Namespace, listeners: list[socket.socket], ready: Callable[[], None]) -> int:
    """Each camera in a process of its own. All end when one does, or when this process is told to."""
    parent = os.getpid()
    signals = END_SIGNALS | {signal.SIGCHLD, ANSWERS}
    signal.pthread_sigmask(signal.SIG_BLOCK, signals)
    processes = []
    for number, listener in enumerate(listeners, 1):
        process = os.fork()
        if process == 0:
            die_with(parent, signal.SIGTERM)
            os.setpgid(0, 0)  # the parent hears the keys of the terminal
            signal.pthread_sigmask(signal.SIG_UNBLOCK, signals)
            given.number, given.prefix = number, f"{listener.getsockname()[1]}  "
            given.keep = given.keep and given.keep / str(number)
            given.video_port = given.video_port and given.video_port + number - 1
            # Ten interpreters that clean up before they end would take half a second more.
            os._exit(run_camera(given, listener, lambda: os.kill(parent, ANSWERS)))
        processes.append(process)
    try:
        if all(signal.sigwait(signals) == ANSWERS for _ in processes):
            ready()
            signal.sigwait(signals)
    finally:
        for process in processes:
            os.kill(process, signal.SIGTERM)
        statuses = [os.waitpid(process, 0)[1] for process in processes]
    return 1 if any(statuses) else 0


def run_camera(given: Namespace, listener: socket.socket | None, ready: Callable[[], None]) -> int:
    """Runs one camera in this process. Without a listener there is no web server."""
    with contextlib.ExitStack() as at_end:
        # In the machine's network and file system, before the camera enters its own.
        streams = Streams(given)
        web_socket = web_server = None
        if listener:
            at_end.enter_context(announce(given.run_directory, listener.getsockname()[1]))
        elif not given.shell:
            web_socket = listen_at(given.socket)
            at_end.callback(given.socket.unlink, missing_ok=True)
        if given.keep:
            lock(given.keep)
        device.enter(given.number, given.keep)
        if listener:
            web_server = front.WebServer(listener, given.page)
            at_end.callback(web_server.stop)
            web_socket = listen_at(front.SOCKET)
        camera = Camera(given, streams)
        at_end.callback(streams.stop)
        for number in END_SIGNALS:
            signal.signal(number, camera.end)
        if web_socket:
            relay = Relay(web_socket, Control(camera))
            camera.service.start()
            if listener:
                ready()
            asyncio.run(relay.run(camera.run(web_server)))
        else:
            shell = start(SHELL, signal.SIGHUP, process_group=None, env=greet(given.service))
            camera.run_beside(shell)
    return 0


def lock(directory: pathlib.Path) -> None:
    """Sees to it that no other camera keeps its settings there, as long as this process lives."""
    try:
        directory.mkdir(parents=True, exist_ok=True)
        fcntl.flock(os.open(directory / "lock", os.O_RDWR | os.O_CREAT, 0o600), fcntl.LOCK_EX | fcntl.LOCK_NB)
    except OSError as error:
        taken = error.errno == errno.EWOULDBLOCK
        reason = "another camera keeps its settings there." if taken else error.strerror
        raise Fault(f"Cannot use {directory}: {reason}") from error
