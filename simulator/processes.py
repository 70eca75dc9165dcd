"""Children of a camera: each ends with the process that started it."""
import os
import signal
import subprocess
from typing import Any

from simulator import Fault
from simulator.messages import libc


def die_with(parent: int, number: int = signal.SIGKILL) -> None:
    """What a child does first: it receives the signal when its parent ends."""
    libc.prctl(1, number)  # PR_SET_PDEATHSIG
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
