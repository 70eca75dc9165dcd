"""The camera for people and test programs, or several: scripts/run starts it."""
import asyncio
import errno
import fcntl
import os
import pathlib
import signal
import socket
import sys
import time
from argparse import Namespace
from collections.abc import Callable

from simulator import Fault, device, front, options, settings
from simulator.camera import SERVICE_SOCKET, Camera, listen_at
from simulator.control import Control
from simulator.front import WebServer
from simulator.outside import VIDEO_PORTS, Outside
from simulator.processes import die_with
from simulator.relay import Relay
from simulator.runs import ReadyFile, announce, join_shell, running, start_shell

HELP = (pathlib.Path(__file__).parent / "help.txt").read_text()
FIRST_PORT, LAST_PORT = 8080, 8180
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
        print(HELP, end="")
        return 0
    check = arguments[:1] == ["--check"]  # scripts/run has not built anything yet
    given = options.read(arguments[check:])
    if check:
        return 0
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
    listeners = [] if given.socket or given.shell else open_ports(given)
    ports = [listener.getsockname()[1] for listener in listeners]
    ready_file = ReadyFile(given.ready_file)
    try:
        if given.cameras > 1:
            return run_cameras(given, listeners, ports, ready_file)
        listener = listeners[0] if listeners else None
        return run_camera(given, "", listener, lambda: tell_ready(given, ports, ready_file))
    finally:
        ready_file.remove()


def pin_own_zone() -> None:
    """Keeps the machine's time zone for the times on the terminal; /etc/localtime becomes the camera's."""
    zone = os.path.realpath("/etc/localtime")
    os.environ.setdefault("TZ", f":{zone}" if zone != "/etc/localtime" and os.path.exists(zone) else "UTC0")
    time.tzset()


def open_ports(given: Namespace) -> list[socket.socket]:
    """A listening socket for each camera."""
    firsts = range(FIRST_PORT, LAST_PORT + 1) if given.port is None else [given.port]
    for first in firsts:
        listeners: list[socket.socket] = []
        for number in range(given.cameras):
            port = first + number if first else 0
            try:
                listeners.append(front.listen(given.listen, port))
            except OSError as error:
                if error.errno != errno.EADDRINUSE:
                    where = front.authority(given.listen, port)
                    raise Fault(f"Cannot listen at {where}: {os.strerror(error.errno or 0)}") from error
                break
        if len(listeners) == given.cameras:
            if given.port is None and first != FIRST_PORT:
                print(f"Port {FIRST_PORT} is taken; using {first}.")
            return listeners
        for listener in listeners:
            listener.close()
    advice = " Leave --port out to have a free one chosen." if given.port is not None else ""
    raise Fault(f"Port {port} is taken.{advice}")


def tell_ready(given: Namespace, ports: list[int], ready_file: ReadyFile) -> None:
    """Shows the welcome and writes the ready file, once all cameras answer."""
    if not ports:
        return
    urls = [f"http://{front.authority(front.reachable(given.listen), port)}" for port in ports]
    print()
    for number, url in enumerate(urls, given.number):
        own = device.Identity(number)
        print(f"{own.name}, serial number {own.serial_number}: page {url}/  management service {url}/PSIA")
    if not front.is_loopback(given.listen):
        print(REACHABLE.format(address=given.listen))
    print(WELCOME.format(url=urls[0], port=ports[0]), flush=True)
    ready_file.write("".join(f"{url}\n" for url in urls))


def lock(directory: pathlib.Path) -> None:
    """Sees to it that no other camera keeps its settings there, as long as this process lives."""
    try:
        directory.mkdir(parents=True, exist_ok=True)
        fcntl.flock(os.open(directory / "lock", os.O_RDWR | os.O_CREAT, 0o600), fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError as error:
        raise Fault(f"Cannot use {directory}: another camera keeps its settings there.") from error
    except OSError as error:
        raise Fault(f"Cannot use {directory}: {error.strerror}") from error


def run_camera(
    given: Namespace, prefix: str, listener: socket.socket | None, ready: Callable[[], None]
) -> int:
    """Runs one camera in this process. Without a listener there is no web server."""
    # Before anything is made that a signal's end would leave.
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(0))
    # In the machine's network, before the camera enters its own.
    port = given.video_port
    ports = VIDEO_PORTS if port is None else [port and port + given.number - 1]
    outside = Outside(given.listen, ports if given.video else [])
    announced = announce(given.run_directory, listener.getsockname()[1]) if listener else None
    web_server: WebServer | None = None
    # In the machine's file system, before the camera's covers it.
    web_socket = listen_at(given.socket) if given.socket and not given.shell else None
    try:
        if given.keep:
            lock(given.keep)
        device.enter(given.number, given.keep)
        for statement in given.set:
            settings.execute(statement)
        if listener:
            web_server = WebServer(listener, given.page)
            web_socket = listen_at(front.SOCKET)
            listener.close()
        camera = Camera(given, prefix, ready, outside)
        if web_socket:
            camera.relay = Relay(web_socket, SERVICE_SOCKET, Control(camera))
        else:
            camera.boot()
        return asyncio.run(camera.run(web_server, None if web_socket else start_shell(given.service)))
    finally:
        if web_server:
            web_server.stop()
        if announced:
            announced.close()
        if given.socket and web_socket:
            given.socket.unlink(missing_ok=True)


def run_cameras(
    given: Namespace, listeners: list[socket.socket], ports: list[int], ready_file: ReadyFile
) -> int:
    """Several cameras, each in a process of its own. All end when one does, or when this process is told
    to."""
    parent = os.getpid()
    signals = {signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGCHLD, ANSWERS}
    signal.pthread_sigmask(signal.SIG_BLOCK, signals)
    processes = []
    for number, listener in enumerate(listeners):
        process = os.fork()
        if process == 0:
            status = 1
            try:
                die_with(parent, signal.SIGTERM)
                os.setpgid(0, 0)  # the parent hears the keys of the terminal
                signal.pthread_sigmask(signal.SIG_UNBLOCK, signals)
                given.number += number
                given.keep = given.keep and given.keep / str(given.number)
                status = run_camera(given, f"{ports[number]}  ", listener, lambda: os.kill(parent, ANSWERS))
            except Fault as fault:
                print(fault, file=sys.stderr)
            finally:
                sys.stdout.flush()
                os._exit(status)
        processes.append(process)
    try:
        answering = 0
        while signal.sigwait(signals) == ANSWERS:
            answering += 1
            if answering == len(processes):
                tell_ready(given, ports, ready_file)
    finally:
        for process in processes:
            os.kill(process, signal.SIGTERM)
        statuses = [os.waitpid(process, 0)[1] for process in processes]
    return 1 if any(statuses) else 0
