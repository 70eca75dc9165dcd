"""The camera's own clock, time zone and time since start; the machine's stay as they are. libfaketime gives
programs the clock: it reads its file each time a program asks for the time. A time namespace gives them the
time since start."""
import contextlib
import os
import pathlib
import time
from collections.abc import Iterator

from simulator import Fault, attempt
from simulator.messages import libc

# libfaketime fixes the name: in the service, the variables of each request replace those of environment().
FILE = pathlib.Path("/etc/faketimerc")
LOCAL_TIME = pathlib.Path("/etc/localtime")
OWN_ZONE = f":{LOCAL_TIME}"  # as a TZ text
ZONES = pathlib.Path("/usr/share/zoneinfo")


def faketime_library() -> str:
    """The path of libfaketime; empty when it is not installed. The camera's clock is then the machine's."""
    return next((str(path) for path in pathlib.Path("/usr/lib").glob("*/faketime/libfaketime.so.1")), "")


def ahead() -> int:
    """Seconds by which the camera's clock is ahead of the machine's."""
    with contextlib.suppress(OSError, ValueError):
        return int(FILE.read_text())
    return 0


def set_ahead(seconds: int) -> None:
    """Sets the camera's clock; with 0 to the machine's, as a good NTP server would."""
    place = FILE.resolve()  # with the settings
    draft = place.with_suffix(".new")
    with attempt(f"write {place}"):
        draft.write_text(f"{seconds:+d}\n")
        draft.replace(place)  # the service may read it at any time


@contextlib.contextmanager
def in_zone(zone: str) -> Iterator[None]:
    """The zone is a TZ text; empty for the camera's own."""
    before = os.environ.get("TZ", OWN_ZONE)
    os.environ["TZ"] = zone or OWN_ZONE
    time.tzset()
    try:
        yield
    finally:
        os.environ["TZ"] = before
        time.tzset()


def set_to(local: tuple[int, int, int, int, int, int], zone: str) -> None:
    """Sets the camera's clock to year, month, day, hour, minute and second in a zone."""
    with in_zone(zone):
        try:
            moment = int(time.mktime((*local, 0, 0, -1)))
        except OverflowError as error:
            raise Fault("no clock can be set to this time") from error
    set_ahead(moment - int(time.time()))


def shown(zone: str) -> str:
    """The camera's time now in a zone, as "2024-05-01T10:00:00"."""
    with in_zone(zone):
        return time.strftime("%Y-%m-%dT%H:%M:%S", time.localtime(int(time.time()) + ahead()))


def take_zone(name: str) -> str:
    """Makes a zone file the zone of processes that start from now on. Gives words when there is none."""
    known = bool(name) and ".." not in name and (ZONES / name).is_file()
    LOCAL_TIME.unlink(missing_ok=True)
    LOCAL_TIME.symlink_to(ZONES / (name if known else "Etc/UTC"))
    return "" if known else f'there is no zone file for "{name}", the camera\'s clock shows UTC'


def restart_uptime() -> str:
    """Sets the time since start to 0 for processes that start from now on. Gives words when it cannot."""
    seconds = int(time.clock_gettime(time.CLOCK_BOOTTIME))  # rounded down: it may not become negative
    with contextlib.suppress(OSError):
        if libc.unshare(0x80) == 0:  # CLONE_NEWTIME
            # An offset from the machine's (time_namespaces(7)).
            pathlib.Path("/proc/self/timens_offsets").write_text(f"boottime {-seconds} 0\n")
            return ""
    return "the kernel has no time namespaces here: the time since start is the machine's"


def environment() -> dict[str, str]:
    """For programs that are to see the camera's clock."""
    variables = {name: value for name, value in os.environ.items() if name != "TZ"}
    return variables | {
        "LD_PRELOAD": faketime_library(),
        "FAKETIME_NO_CACHE": "1",
        "FAKETIME_DONT_FAKE_MONOTONIC": "1",
        "NO_FAKE_STAT": "1",
        "FAKETIME_TIMESTAMP_FILE": str(FILE),  # or it would prefer a file in the home directory
    }
