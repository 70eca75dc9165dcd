"""Runs a command inside a new simulated camera, and exits with its status: the service tests and the checks
of the documents, for example. It can import this package."""
import argparse
import os
import pathlib
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
    if options.without_daemons:
        return os.waitstatus_to_exitcode(os.waitpid(command, 0)[1]) % 256

    def hear(message: Message) -> None:
        with MESSAGES.open("a", errors="surrogateescape") as log:
            log.write(message.describe() + "\n")

    played = daemons.Daemons(daemons.act_on, hear=hear, rules=options.answer)
    while True:
        ended, status = os.waitpid(command, os.WNOHANG)
        if ended:
            return os.waitstatus_to_exitcode(status) % 256
        played.step()
        time.sleep(ROUND)


def start(command: list[str]) -> int:
    """Starts the command as process 1 of a namespace: the kernel kills the others when it ends. It dies with
    this program."""
    if not device.unshare(device.NEW_PROCESSES):
        raise Fault("Cannot create a namespace of processes.")
    parent = os.getpid()
    process = os.fork()
    if process != 0:
        return process
    try:
        die_with(parent)
        device.mount("proc", "/proc", "proc")
        os.environ["PYTHONPATH"] = os.pathsep.join([str(PROJECT), *os.environ.get("PYTHONPATH", "").split()])
        os.execvp(command[0], command)
    except OSError as error:
        hint = " (in docker: --security-opt systempaths=unconfined)" if error.filename == "/proc" else ""
        print(f"Cannot start {command[0]}: {error}{hint}", file=sys.stderr)
    os._exit(127)
