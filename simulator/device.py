"""The device that the service finds: its files, its network interface eth0 and its message queues, in private
namespaces, so that the unmodified service runs with its fixed paths and the machine itself does not
change."""
import contextlib
import ctypes
import fcntl
import ipaddress
import os
import pathlib
import shutil
import socket
import struct
import subprocess
from collections.abc import Callable
from typing import NamedTuple

from simulator import Fault, clock, settings
from simulator.messages import REPLIES, REQUESTS, libc

LOCAL = "/usr/local"  # where a camera has its settings and its exchange directory
EXCHANGE = pathlib.Path(os.environ.get("PSIA_EXCHANGE_DIR", "/usr/local/httpd/htdocs/Web/updownload"))
FACTORY_DATA = pathlib.Path(os.environ.get("PSIA_FACTORY_DATA", "/dev/mtdblock7"))
RESOLVER = pathlib.Path("/etc/resolv.conf")

SUBNET_MASK = "255.255.255.0"
NAME_SERVERS = ("192.168.1.2", "192.168.1.3")
SEARCH_DOMAIN = "camera.example"
MAX_NUMBER = 100  # of cameras

# linux/sched.h, linux/mount.h
NEW_MOUNTS, NEW_QUEUES, NEW_USER, NEW_PROCESSES, NEW_NETWORK = (
    0x20000,
    0x8000000,
    0x10000000,
    0x20000000,
    0x40000000,
)
BIND, RECURSIVE, PRIVATE = 0x1000, 0x4000, 0x40000
GET_ADDRESS, GET_MASK = 0x8915, 0x891B  # SIOCGIFADDR, SIOCGIFNETMASK

# The device files of the machine that the camera has as well.
DEVICES = "null zero full random urandom tty ptmx pts fd stdin stdout stderr".split()

ADVICE = (pathlib.Path(__file__).parent / "namespaces.txt").read_text().rstrip()
NO_PROC = "/proc is not mounted here. As root: mount -t proc proc /proc"
PLAIN_CHROOT = """\
This is a plain chroot: its / is not a mount point, so the camera's mounts cannot be kept apart from
the machine's. Make it one from outside, before you enter it:
  mount --bind DIRECTORY DIRECTORY; mount -t proc proc DIRECTORY/proc; chroot DIRECTORY"""


class Identity(NamedTuple):
    """What distinguishes one camera from the next of its model, the same in every run."""

    serial_number: str
    device_id: str
    hardware_address: str
    name: str
    address: str
    gateway: str
    leased_address: str  # what the simulated network gives this camera when it asks for an address


def identity(number: int) -> Identity:
    """Of the camera with a number from 1 to MAX_NUMBER."""
    return Identity(
        f"QC2040-0007-{4241 + number}",
        f"6F1E0C52-93B7-4D2A-8E45-2a7d90b1{0xC3F3 + number:04x}",
        f"02:51:43:20:40:{9 + number:02x}",
        f"camera-{number}",
        f"192.168.{number}.10",
        f"192.168.{number}.1",
        f"192.168.{number}.20",
    )


own = identity(1)
entered = False  # every function that changes files or network checks it, so that none changes the machine's


def check_entered() -> None:
    if not entered:
        raise Fault("This process has not entered the device.")


def mount(
    source: str | pathlib.Path, place: str | pathlib.Path, kind: str = "", flags: int = 0, data: str = ""
) -> None:
    if libc.mount(os.fsencode(source), os.fsencode(place), kind.encode(), flags, data.encode()) != 0:
        code = ctypes.get_errno()
        raise OSError(code, os.strerror(code), str(place))


def unshare(namespaces: int) -> bool:
    return bool(libc.unshare(namespaces) == 0)


def enter(number: int = 1, keep: pathlib.Path | None = None) -> None:
    """Moves this process, which must have one thread, into private namespaces and builds the device there: a
    camera in its factory state, or with the settings that an earlier run left in the directory `keep`. Needs
    root, or unprivileged user namespaces, where the caller appears as root."""
    global own, entered
    own = identity(number)
    try:
        enter_namespaces()
        lay_out_directories(keep)
        entered = True
        # ip and route are in the administrator's directories, which an ordinary user's PATH often lacks.
        os.environ["PATH"] = os.environ.get("PATH", "/usr/bin:/bin") + ":/usr/sbin:/sbin"
        ip("link set lo up", "link add eth0 type veth peer name eth0peer", "link set eth0peer up")
        if keep and settings.DATABASE.exists():
            open_kept_settings()
        else:
            reset()
    except OSError as error:
        raise Fault(f"Cannot make the camera's files and queues: {error}\n{ADVICE}") from error


def enter_namespaces() -> None:
    if not os.access("/proc/self/fd", os.X_OK):
        raise Fault(NO_PROC)
    with open("/proc/self/mountinfo", encoding="utf-8") as mounts:
        if not any(line.split()[4] == "/" for line in mounts):
            raise Fault(PLAIN_CHROOT)
    user, group = os.geteuid(), os.getegid()
    namespaces = NEW_MOUNTS | NEW_QUEUES | NEW_NETWORK
    # As root without a user namespace, where that is possible.
    if not unshare(namespaces):
        if not unshare(NEW_USER | namespaces):
            raise Fault(f"Cannot create private namespaces: {os.strerror(ctypes.get_errno())}\n{ADVICE}")
        # An ordinary user may write a group map only after denying setgroups (user_namespaces(7)).
        for name, text in ("setgroups", "deny"), ("uid_map", f"0 {user} 1"), ("gid_map", f"0 {group} 1"):
            pathlib.Path("/proc/self", name).write_text(text)
    mount("none", "/", flags=RECURSIVE | PRIVATE)


def cover(directory: str, keeps: Callable[[str], bool]) -> None:
    """Mounts an empty file system over a directory and binds into it those of its entries that stay, so that
    entries can be added without a write to the machine's file system."""
    covered = os.open(directory, os.O_PATH | os.O_DIRECTORY)  # still reaches the directory after the mount
    original = pathlib.Path(f"/proc/self/fd/{covered}")
    mount("tmpfs", directory, "tmpfs", data="mode=755")
    for entry in filter(lambda entry: keeps(entry.name), original.iterdir()):
        place = pathlib.Path(directory, entry.name)
        if entry.is_symlink():
            place.symlink_to(os.readlink(entry))
            continue
        place.mkdir() if entry.is_dir() else place.touch()
        with contextlib.suppress(FileNotFoundError):  # removed meanwhile
            mount(entry, place, flags=BIND | RECURSIVE)
    os.close(covered)


def lay_out_directories(keep: pathlib.Path | None) -> None:
    zone = clock.LOCAL_TIME.read_bytes() if clock.LOCAL_TIME.exists() else b""
    kept = os.open(keep, os.O_PATH | os.O_DIRECTORY) if keep else -1
    try:
        hidden = [path.relative_to(LOCAL).parts[0] for path in (settings.DIRECTORY, EXCHANGE)]
        FACTORY_DATA.relative_to("/dev")
    except ValueError as error:
        raise Fault(f"A simulated camera can only have such paths: {error}") from error
    cover(LOCAL, lambda name: name not in hidden)
    cover("/dev", DEVICES.__contains__)
    # Covering the whole of /etc also works where resolv.conf is missing or a dangling link.
    cover("/etc", lambda name: name not in (RESOLVER.name, clock.LOCAL_TIME.name, clock.FILE.name))
    if zone:
        clock.LOCAL_TIME.write_bytes(zone)  # a copy can be replaced, unlike a link or a file of the machine
    settings.DIRECTORY.mkdir(parents=True)
    if keep:
        mount(f"/proc/self/fd/{kept}", settings.DIRECTORY, flags=BIND)
        os.close(kept)
        for path in (RESOLVER, clock.FILE):
            path.symlink_to(settings.DEFAULTS.parent / path.name)
    settings.DEFAULTS.parent.mkdir(exist_ok=True)
    EXCHANGE.mkdir(parents=True)
    pathlib.Path("/dev/shm").mkdir()


def open_kept_settings() -> None:
    try:
        settings.check(settings.DATABASE)
    except Fault as fault:
        raise Fault(f"The kept settings cannot be used: {fault}") from fault
    reset_fixed_files()
    reset_interface()
    apply_addressing()


def reset() -> None:
    """The factory state: databases, factory data, name servers, clock, empty exchange directory and queues,
    eth0."""
    check_entered()
    settings.create(
        f"update Network set IPAddress='{own.address}', Gateway='{own.gateway}', DDNSHostname='{own.name}';"
        f"update System set uuid='{own.device_id}';"
    )
    reset_fixed_files()
    reset_interface()
    clock.set_ahead(0)
    write_resolver(*NAME_SERVERS)


def reset_fixed_files() -> None:
    check_entered()
    # The serial number has 32 bytes at offset 256.
    FACTORY_DATA.write_bytes((bytes(256) + own.serial_number.encode()).ljust(65536, b"\0"))
    for entry in EXCHANGE.iterdir():
        shutil.rmtree(entry) if entry.is_dir() and not entry.is_symlink() else entry.unlink()
    for queue in (REQUESTS, REPLIES):
        queue.create()


def write_resolver(*servers: str) -> None:
    check_entered()
    lines = [f"nameserver {server}\n" for server in servers if server]
    RESOLVER.write_text("".join(lines) + f"search {SEARCH_DOMAIN}\n", errors="surrogateescape")


def name_servers() -> list[str]:
    words = RESOLVER.read_text(errors="surrogateescape").split() if RESOLVER.exists() else []
    return [server for word, server in zip(words, words[1:]) if word == "nameserver"]


def ip(*commands: str) -> None:
    """Runs commands of ip(8) in one process."""
    check_entered()
    lines = "\n".join(commands)
    try:
        done = subprocess.run(["ip", "-batch", "-"], input=lines, capture_output=True, text=True, check=False)
    except FileNotFoundError as error:
        raise Fault("The ip command is missing: install the package iproute2.") from error
    if done.returncode != 0:
        hint = "\nIf the kernel lacks veth interfaces: modprobe veth." if "veth" in lines else ""
        raise Fault(f"The ip command failed: {done.stderr.strip()}{hint}")


def set_address(address: str, mask: str, gateway: str) -> None:
    """Gives eth0 an address; an empty gateway or 0.0.0.0 is none. Clients may have stored anything as one of
    these."""
    has_gateway = gateway not in ("", "0.0.0.0")
    try:
        for text in (address, mask, gateway if has_gateway else address):
            ipaddress.IPv4Address(text)
    except ValueError as error:
        raise Fault("The stored address, mask or gateway is not valid") from error
    ip(
        "address flush dev eth0 scope global",
        "link set eth0 up",
        f"address add {address}/{mask} broadcast + dev eth0",
        *([f"route replace default via {gateway} dev eth0"] if has_gateway else []),
    )


def reset_interface() -> None:
    ip(f"link set eth0 address {own.hardware_address}")
    set_address(own.address, SUBNET_MASK, own.gateway)


def apply_addressing() -> None:
    """Addresses eth0 as the settings say."""
    rows = settings.query("select ConnectionType, IPAddress, SubnetMask, Gateway from Network")
    if not rows:
        raise Fault("No stored addressing")
    dynamic, *static = rows[0]
    if dynamic == 1:
        set_address(own.leased_address, SUBNET_MASK, own.gateway)
    else:
        set_address(*(str(text or "") for text in static))


def live_address() -> str:
    """Address and mask of eth0: "192.168.1.10 255.255.255.0"; empty when it has none."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        try:
            answers = [
                fcntl.ioctl(control, what, struct.pack("40s", b"eth0")) for what in (GET_ADDRESS, GET_MASK)
            ]
        except OSError:
            return ""
    return " ".join(socket.inet_ntoa(answer[20:24]) for answer in answers)
