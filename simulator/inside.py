"""Runs a command inside a new simulated camera, and exits with its status: the service tests and the checks
of the documents, for example. It can import this package."""
import argparse
import os
import pathlib
import subprocess
import sys
import time

from simulator import Fault, daemons, device
from simulator.messages import Message
from simulator.processes import die_with

PROJECT = pathlib.Path(__file__).parents[1]

# The command reads here which messages the daemons received, a line for each.
MESSAGES = pathlib.Path("/usr/local/messages")
ROUND = 0.002  # seconds between two looks at the queue, which cannot be waited for with a timeout


def main(arguments: list[str]) -> int:
    parser = argparse.ArgumentParser(prog="simulator inside", description=__doc__, allow_abbrev=False)
    parser.add_argument("--without-daemons", action="store_true", help="messages are left to the command")
    parser.add_argument("--answer", action="append", default=[], type=daemons.parse_rule, metavar="RULE")
    parser.add_argument("command", nargs=argparse.REMAINDER)
    options = parser.parse_args(arguments)
    if not options.command:
        parser.error("the command is missing")
    device.enter()
    command = start(options.command)

    def hear(message: Message) -> None:
        with MESSAGES.open("a", errors="surrogateescape") as log:
            log.write(message.describe() + "\n")

    played = daemons.Daemons(daemons.act_on, hear=hear, rules=options.answer)
    if options.without_daemons:
        command.wait()
    while command.poll() is None:
        played.step()
        time.sleep(ROUND)
    return max(command.returncode, -1) % 256


def start(command: list[str]) -> subprocess.Popen[bytes]:
    """Starts the command as process 1 of a namespace: the kernel kills the others when it ends."""
    parent = os.getpid()

    def prepare() -> None:
        die_with(parent)
        try:
            device.mount("proc", "/proc", "proc")
        except OSError as error:
            print(f"{error} (in docker: --security-opt systempaths=unconfined)", file=sys.stderr, flush=True)
            os._exit(1)

    if not device.unshare(device.NEW_PROCESSES):
        raise Fault("Cannot create a namespace of processes.")
    path = os.pathsep.join([str(PROJECT), *os.environ.get("PYTHONPATH", "").split()])
    try:
        return subprocess.Popen(command, preexec_fn=prepare, env=os.environ | {"PYTHONPATH": path})
    except OSError as error:
        raise Fault(f"Cannot start {command[0]}: {error.strerror}") from error
