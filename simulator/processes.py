"""Children of a camera: each ends with the process that started it, and the service is one of them."""
import os
import signal
import socket
import subprocess
import time
from collections.abc import Callable
from dataclasses import dataclass
from typing import IO, Any

from simulator import Fault, clock
from simulator.messages import libc
from simulator.texts import decoded, lines_of

DIE_WITH_PARENT = 1  # PR_SET_PDEATHSIG of prctl(2)
PATIENCE = 3  # seconds that a service has to end


def die_with(parent: int, number: int = signal.SIGKILL) -> None:
    """What a child does first: it receives the signal when its parent ends."""
    libc.prctl(DIE_WITH_PARENT, number)
    if os.getppid() != parent:
        os._exit(1)


def start(command: list[str], number: int = signal.SIGKILL, **options: Any) -> subprocess.Popen[bytes]:
    """Starts a child that receives the signal when this process ends, however that happens. No key on the
    terminal reaches it, unless the options say process_group=None."""
    parent = os.getpid()
    options.setdefault("process_group", 0)
    try:
        return subprocess.Popen(command, preexec_fn=lambda: die_with(parent, number), **options)
    except (OSError, subprocess.SubprocessError) as error:
        raise Fault(f"Cannot run {command[0]}: {error}") from error


def read_waiting(stream: IO[bytes] | None) -> str:
    """What can be read without waiting."""
    return decoded((stream and stream.read()) or b"")  # None: nothing now


@dataclass
class Service:
    """The service's process."""

    binary: str
    listener: socket.socket  # which becomes its standard input
    printed: Callable[[str], None]  # is given what it writes on standard output
    told: Callable[[str], None]  # is given lines about it
    process: subprocess.Popen[bytes] | None = None
    kill_at: float = 0  # 0: it is not stopping
    ended_at: float = 0

    def start(self) -> None:
        pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "bufsize": 0}
        self.process = start([self.binary], stdin=self.listener, env=clock.environment(), **pipes)
        for stream in (self.process.stdout, self.process.stderr):
            os.set_blocking(stream.fileno() if stream else -1, False)
        self.told(f"service started, process {self.process.pid}")

    def runs(self) -> bool:
        return self.process is not None

    def stop(self) -> None:
        """Tells it to end; step() notices that it has, and kills it if it does not."""
        if self.process and not self.kill_at:
            self.process.terminate()
            self.kill_at = time.monotonic() + PATIENCE

    def end(self) -> None:
        """Ends it within a quarter of a second."""
        self.stop()
        self.kill_at = time.monotonic() + 0.25
        while self.runs():
            self.step()
            time.sleep(0.002)
        self.kill_at = 0

    def step(self) -> None:
        if not self.process:
            return
        if self.kill_at and time.monotonic() >= self.kill_at:
            self.process.kill()
        status = self.process.poll()
        if text := read_waiting(self.process.stdout):
            self.printed(text)
        for line in lines_of(read_waiting(self.process.stderr)):
            self.told(f"service reported: {line}")
        if status is not None:
            self.process = None
            self.kill_at, self.ended_at = 0, time.monotonic()
            how = f"by signal {-status}" if status < 0 else f"with exit status {status}"
            self.told(f"service ended {how}")
