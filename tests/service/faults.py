"""What only the tests do to the service: operations fail, time passes faster, waits are looked at."""
import ctypes
import mmap
import os
import time

from simulator.settings import DIRECTORY

# An emulator may use another one of two system calls that do the same.
SYSTEM_CALLS = {"x86_64": {"read": [0], "write": [1], "poll": [7, 271], "msgsnd": [69],
                           "clock_nanosleep": [230], "accept": [43, 288]},
                "aarch64": {"read": [63], "write": [64], "poll": [73], "msgsnd": [189],
                            "clock_nanosleep": [115], "accept": [202, 242]}}[os.uname().machine]

# A statement tries seven times to get a lock, and sleeps so many milliseconds in between.
ATTEMPTS_AT_A_LOCK = 7
WAIT_FOR_A_LOCK = 50 + 100 + 150 + 200 + 250 + 300
LOCKS_OF_A_LOGIN = 2
FOREVER = 1000000  # failures

FAST = 100  # times: a wait of 5 s takes 50 ms


class FaultPlan(ctypes.Structure):
    """What the fault library in the service is told, and tells."""
    _fields_ = [(name, ctypes.c_int) for name in ("kind", "skip", "fail", "speed", "slept")]
    MEMORY, WRITE, SYNC, LOCK, STOP, READ = range(1, 7)

    @staticmethod
    def create():
        path = DIRECTORY / "faults"
        path.write_bytes(bytes(ctypes.sizeof(FaultPlan)))
        with open(path, "r+b") as file:
            return FaultPlan.from_buffer(mmap.mmap(file.fileno(), 0))

    def let_fail(self, kind, skip=0, fail=1):
        """So many operations of the kind go well, then so many fail."""
        self.skip, self.fail, self.kind = skip, fail, kind

    def stop_before_next_wait(self):
        """Sends a SIGTERM just before the next accept, or the next send that blocks."""
        self.let_fail(FaultPlan.STOP)


def seconds(camera):
    """What the clock of a service with the fault library shows."""
    return time.monotonic() * camera.plan.speed


def let_pass(camera, seconds):
    time.sleep(seconds / camera.plan.speed)
