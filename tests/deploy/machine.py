"""The simulated camera as a machine on which the service is set up: what the tests of deploy/ share."""
import pathlib
import subprocess

import pytest

from simulator.testing import eventually

CAMERA = pathlib.Path("/usr/local")  # in memory, but what the machine has in it stays the machine's
USER = 990


def run(*command):
    subprocess.run(command, check=True, capture_output=True)


def processes(*programs):
    """The numbers of the processes that run them."""
    found = subprocess.run(["pidof", "-x", *programs], capture_output=True, text=True).stdout
    return [int(number) for number in found.split()]


def started_again(program, before, ready=lambda: True):
    eventually(lambda: processes(program) not in ([], before) and ready(), "the service started again")


def add_user():
    """Adds the user psia, or skips the test where this may not be done."""
    if pathlib.Path("/proc/self/uid_map").read_text().split() != ["0", "0", "4294967295"]:
        pytest.skip("users other than root cannot take another user's name")
    for name, line in (("passwd", f"psia:x:{USER}:{USER}::/:/bin/false\n"), ("group", f"psia:x:{USER}:\n")):
        copy = CAMERA / name
        copy.write_text(pathlib.Path("/etc", name).read_text() + line)
        run("mount", "--bind", copy, f"/etc/{name}")


def empty(*directories):
    for directory in directories:
        run("mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", directory)
