"""Processes of a camera: each ends with the process that started it, and the service is one of them."""
import os
import pathlib
import signal
import socket
import subprocess
import time
from collections.abc import Callable

from simulator import Fault, clock
from simulator.messages import libc
from simulator.texts import decoded, lines_of

DIE_WITH_PARENT = 1  # PR_SET_PDEATHSIG of prctl(2)
PATIENCE = 3  # seconds that a service has to end


def die_with(parent: int, number: signal.Signals = signal.SIGKILL) -> None:
    """What a child does first: it receives the signal when its parent ends."""
    libc.prctl(DIE_WITH_PARENT, number)
    if os.getppid() not in (parent, 0):  # 0: of another namespace
        os._exit(1)


def read_waiting(stream: int) -> bytes:
    """What can be read without waiting."""
    data = b""
    try:
        while piece := os.read(stream, 65536):
            data += piece
    except BlockingIOError:
        pass
    return data


class Service:
    """The service's process. `printed` is given what it writes on standard output, `told` lines about it."""

    def __init__(
        self,
        binary: pathlib.Path,
        listener: socket.socket,
        printed: Callable[[str], None],
        told: Callable[[str], None],
    ) -> None:
        self.binary = binary
        self.listener = listener  # which becomes its standard input
        self.printed = printed
        self.told = told
        self.process: subprocess.Popen[bytes] | None = None
        self.kill_at = 0.0  # 0: it is not stopping
        self.ended_at = 0.0

    def start(self) -> None:
        parent = os.getpid()
        try:
            self.process = subprocess.Popen(
                [self.binary],
                stdin=self.listener.fileno(),
                stdout=subprocess.PIPE,
                stderr=subprocess.PIPE,
                bufsize=0,
                env=clock.environment(),
                preexec_fn=lambda: die_with(parent),
                process_group=0,  # no key on the terminal reaches it
            )
        except (OSError, subprocess.SubprocessError) as error:
            raise Fault(f"Cannot run {self.binary}: {error}") from error
        for stream in (self.process.stdout, self.process.stderr):
            assert stream
            os.set_blocking(stream.fileno(), False)
        self.told(f"service started, process {self.process.pid}")

    def runs(self) -> bool:
        return self.process is not None

    def stop(self) -> None:
        """Tells it to end, which step() notices, or sees to."""
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
        self.read_outputs(self.process)
        if status is None:
            return
        for stream in (self.process.stdout, self.process.stderr):
            assert stream
            stream.close()
        self.process = None
        self.kill_at, self.ended_at = 0, time.monotonic()
        self.told(f"service ended {f'by signal {-status}' if status < 0 else f'with exit status {status}'}")

    def read_outputs(self, process: subprocess.Popen[bytes]) -> None:
        assert process.stdout and process.stderr
        if text := decoded(read_waiting(process.stdout.fileno())):
            self.printed(text)
        for line in lines_of(decoded(read_waiting(process.stderr.fileno()))):
            self.told(f"service reported: {line}")
