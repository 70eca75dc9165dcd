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

from simulator import Fault, clock, settings
from simulator.messages import REPLIES, REQUESTS, libc

EXCHANGE = pathlib.Path(os.environ.get("PSIA_EXCHANGE_DIR", "/usr/local/httpd/htdocs/Web/updownload"))
FACTORY_DATA = pathlib.Path(os.environ.get("PSIA_FACTORY_DATA", "/dev/mtdblock7"))
RESOLVER = pathlib.Path("/etc/resolv.conf")

NAME_SERVERS = ("192.168.1.2", "192.168.1.3")
MAX_NUMBER = 100  # of cameras

# linux/sched.h, linux/mount.h
NEW_MOUNTS, NEW_QUEUES, NEW_USER, NEW_NETWORK = 0x20000, 0x8000000, 0x10000000, 0x40000000
BIND, RECURSIVE, PRIVATE = 0x1000, 0x4000, 0x40000

# The device files of the machine that the camera has as well.
DEVICES = "null zero full random urandom tty ptmx pts fd stdin stdout stderr".split()

StrPath = str | pathlib.Path
ADVICE = (pathlib.Path(__file__).parent / "namespaces.txt").read_text().rstrip()


class Identity:
    """What distinguishes one camera, of at most MAX_NUMBER, from the next; the same in every run."""

    def __init__(self, number: int) -> None:
        self.serial_number = f"QC2040-0007-{4241 + number}"
        self.device_id = f"6F1E0C52-93B7-4D2A-8E45-2a7d90b1{0xC3F3 + number:04x}"
        self.hardware_address = f"02:51:43:20:40:{9 + number:02x}"
        self.name = f"camera-{number}"
        self.address = f"192.168.{number}.10"
        self.gateway = f"192.168.{number}.1"
        self.leased_address = f"192.168.{number}.20"  # what the simulated network gives to DHCP clients


own = Identity(1)
entered = False  # what changes files or network asserts it, so that nothing changes the machine's


def mount(source: StrPath, place: StrPath, kind: str = "", flags: int = 0, data: str = "") -> None:
    if libc.mount(os.fsencode(source), os.fsencode(place), kind.encode(), flags, data.encode()) != 0:
        code = ctypes.get_errno()
        raise OSError(code, os.strerror(code), str(place))


def enter(number: int = 1, keep: pathlib.Path | None = None) -> None:
    """Moves this process, which must have one thread, into private namespaces and builds the device there: a
    camera in its factory state, or with the settings that an earlier run left in the directory `keep`. Needs
    root, or unprivileged user namespaces, where the caller appears as root."""
    global own, entered
    own = Identity(number)
    try:
        enter_namespaces()
        lay_out_directories(keep)
        entered = True
        # ip and route are in the administrator's directories, which an ordinary user's PATH often lacks.
        os.environ["PATH"] = os.environ.get("PATH", "/usr/bin:/bin") + ":/usr/sbin:/sbin"
        ip("link set lo up", "link add eth0 type veth peer name eth0peer", "link set eth0peer up")
        if kept := settings.DATABASE.exists():
            try:
                settings.check(settings.DATABASE)
            except Fault as fault:
                raise Fault(f"The kept settings cannot be used: {fault}") from fault
        reset(settings_too=not kept)
    except OSError as error:
        raise Fault(f"Cannot make the camera's files and queues: {error}\n{ADVICE}") from error


def enter_namespaces() -> None:
    user, group = os.geteuid(), os.getegid()
    namespaces = NEW_MOUNTS | NEW_QUEUES | NEW_NETWORK
    # As root without a user namespace, where that is possible.
    if libc.unshare(namespaces) != 0:
        if libc.unshare(NEW_USER | namespaces) != 0:
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
    try:
        hidden = [path.relative_to("/usr/local").parts[0] for path in (settings.DIRECTORY, EXCHANGE)]
        FACTORY_DATA.relative_to("/dev")
    except ValueError as error:
        raise Fault(f"A simulated camera can only have such paths: {error}") from error
    kept = os.open(keep, os.O_PATH | os.O_DIRECTORY) if keep else -1  # the camera's directories may cover it
    cover("/usr/local", lambda name: name not in hidden)
    cover("/dev", DEVICES.__contains__)
    # Covering the whole of /etc also works where resolv.conf is missing or a dangling link.
    cover("/etc", lambda name: name not in (RESOLVER.name, clock.LOCAL_TIME.name, clock.FILE.name))
    for directory in (pathlib.Path("/dev/shm"), EXCHANGE, settings.DIRECTORY):
        directory.mkdir(parents=True)
    if keep:
        mount(f"/proc/self/fd/{kept}", settings.DIRECTORY, flags=BIND)
        os.close(kept)
    settings.DEFAULTS.parent.mkdir(exist_ok=True)
    for path in (RESOLVER, clock.FILE):
        path.symlink_to(settings.DEFAULTS.parent / path.name)  # so that they are kept with the settings


def reset(settings_too: bool = True) -> None:
    """The factory state. What the camera keeps with its settings can stay; eth0 then has no address before
    the camera boots."""
    ip(f"link set eth0 address {own.hardware_address}")
    # The serial number has 32 bytes at offset 256.
    FACTORY_DATA.write_bytes((bytes(256) + own.serial_number.encode()).ljust(65536, b"\0"))
    for entry in EXCHANGE.iterdir():
        shutil.rmtree(entry) if entry.is_dir() and not entry.is_symlink() else entry.unlink()
    for queue in (REQUESTS, REPLIES):
        queue.create()
    if settings_too:
        settings.create(
            "update Network set"
            f" IPAddress='{own.address}', Gateway='{own.gateway}', DDNSHostname='{own.name}';"
            f"update System set uuid='{own.device_id}';"
        )
        clock.set_ahead(0)
        write_resolver(*NAME_SERVERS)
        apply_addressing()


def write_resolver(*servers: str) -> None:
    assert entered
    lines = [f"nameserver {server}\n" for server in servers if server]
    RESOLVER.write_text("".join(lines) + "search camera.example\n", errors="surrogateescape")


def name_servers() -> list[str]:
    words = RESOLVER.read_text(errors="surrogateescape").split() if RESOLVER.exists() else []
    return [server for word, server in zip(words, words[1:]) if word == "nameserver"]


def ip(*commands: str) -> None:
    """Runs commands of ip(8) in one process."""
    assert entered
    lines = "\n".join(commands)
    try:
        done = subprocess.run(["ip", "-batch", "-"], input=lines, capture_output=True, text=True, check=False)
    except FileNotFoundError as error:
        raise Fault("The ip command is missing: install the package iproute2.") from error
    if done.returncode != 0:
        hint = "\nIf the kernel lacks veth interfaces: modprobe veth." if "veth" in lines else ""
        raise Fault(f"The ip command failed: {done.stderr.strip()}{hint}")


def apply_addressing() -> None:
    """Addresses eth0 as the settings say, where clients may have stored anything. An empty gateway or 0.0.0.0
    is none."""
    rows = settings.query("select ConnectionType, IPAddress, SubnetMask, Gateway from Network")
    if not rows:
        raise Fault("No stored addressing")
    dynamic, *stored = rows[0]
    leased = [own.leased_address, "255.255.255.0", own.gateway]
    address, mask, gateway = (str(text or "") for text in (leased if dynamic == 1 else stored))
    gateways = [gateway] if gateway not in ("", "0.0.0.0") else []
    try:
        for text in (address, mask, *gateways):
            ipaddress.IPv4Address(text)
    except ValueError as error:
        raise Fault("The stored address, mask or gateway is not valid") from error
    ip(
        "address flush dev eth0 scope global",
        "link set eth0 up",
        f"address add {address}/{mask} broadcast + dev eth0",
        *(f"route replace default via {gateway} dev eth0" for gateway in gateways),
    )


def live_address() -> str:
    """Address and mask of eth0: "192.168.1.10 255.255.255.0"; empty when it has none."""
    request = struct.pack("40s", b"eth0")
    with contextlib.suppress(OSError), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        # SIOCGIFADDR, SIOCGIFNETMASK
        answers = [fcntl.ioctl(control, what, request) for what in (0x8915, 0x891B)]
        return " ".join(socket.inet_ntoa(answer[20:24]) for answer in answers)
    return ""
