"""Children of a camera: each ends with the process that started it. The command "inside" runs any program as
one."""
import argparse
import os
import signal
import subprocess
import time
from typing import Any

from simulator import PROJECT, Fault, daemons, device
from simulator.messages import libc

# The command is process 1 of a namespace: the kernel kills the others when it ends.
UNSHARE = ["unshare", "--pid", "--fork", "--kill-child", "--mount-proc"]


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


def main(arguments: list[str]) -> int:
    """Runs a command inside a new simulated camera, and exits with its status: the service tests and the
    checks of the documents, for example. It can import this package."""
    parser = argparse.ArgumentParser(prog="simulator inside", description=main.__doc__, allow_abbrev=False)
    parser.add_argument("--without-daemons", action="store_true", help="messages are left to the command")
    parser.add_argument("--answer", action="append", default=[], type=daemons.parse_rule, metavar="RULE")
    parser.add_argument("command", nargs=argparse.REMAINDER)
    options = parser.parse_args(arguments)
    if not options.command:
        parser.error("the command is missing")
    device.enter()
    os.environ["PYTHONPATH"] = os.pathsep.join([str(PROJECT), *os.environ.get("PYTHONPATH", "").split()])
    command = start([*UNSHARE, *options.command], process_group=None)
    played = daemons.Daemons(daemons.act_on, rules=options.answer)
    if options.without_daemons:
        command.wait()
    while command.poll() is None:
        played.step()
        time.sleep(0.002)  # the queue cannot be waited for with a timeout
    return max(command.returncode, -1) % 256
