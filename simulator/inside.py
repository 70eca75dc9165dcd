"""Runs a command inside a new simulated camera, and exits with its status: the service tests and the checks
of the documents, for example. It can import this package."""
import argparse
import os
import time

from simulator import PROJECT, daemons, device
from simulator.processes import start

# The command is process 1 of a namespace: the kernel kills the others when it ends.
UNSHARE = ["unshare", "--pid", "--fork", "--kill-child", "--mount-proc"]


def main(arguments: list[str]) -> int:
    parser = argparse.ArgumentParser(prog="simulator inside", description=__doc__, allow_abbrev=False)
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
