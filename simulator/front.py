"""The web server in front of a camera, lighttpd: it serves the page and passes requests below /PSIA and
/camera on."""
import ipaddress
import pathlib
import re
import signal
import socket
import subprocess
import time

from simulator import PROJECT, Fault, device
from simulator.processes import start

# In memory, so that nothing of it is left when the camera ends, however that happens. Bodies are collected
# here before anybody's password was looked at, so it is bounded.
DIRECTORY = pathlib.Path("/dev/front")
SOCKET = DIRECTORY / "psia.socket"
LOG = DIRECTORY / "lighttpd.log"


def is_ip_address(text: str) -> bool:
    try:
        return bool(ipaddress.ip_address(text))
    except ValueError:
        return False


def authority(address: str, port: int) -> str:
    return f"[{address}]:{port}" if ":" in address else f"{address}:{port}"


def reachable(address: str) -> str:
    """As this machine reaches who listens at an address."""
    return "127.0.0.1" if address in ("0.0.0.0", "::") else address


def listen(address: str, port: int) -> socket.socket:
    """IPv6 addresses take IPv4 connections too. Port 0: any free one."""
    family = socket.AF_INET6 if ":" in address else socket.AF_INET
    return socket.create_server((address, port), family=family, backlog=128, dualstack_ipv6=address == "::")


def limits() -> str:
    """The lines that limit requests in the configuration that a camera is shipped with."""
    shipped = PROJECT / "deploy/lighttpd.conf"
    text = shipped.read_text() if shipped.exists() else ""
    section = re.search(r"^# PSIA: bodies(.+\n)+", text, re.MULTILINE)
    if not section or "max-request-size" not in section[0]:
        raise Fault(f"Cannot find the limits of requests in {shipped}.")
    return re.sub(r"^server\.upload-dirs.*\n", "", section[0], flags=re.MULTILINE)


def configuration(page: pathlib.Path) -> str:
    return f"""\
server.modules = ("mod_fastcgi")
server.bind = "/dev/stdin"
server.document-root = "{page.absolute()}"
index-file.names = ("index.html")
mimetype.assign = (".html" => "text/html; charset=utf-8", ".js" => "text/javascript; charset=utf-8",
  ".css" => "text/css; charset=utf-8", ".json" => "application/json", ".jpg" => "image/jpeg")
server.upload-dirs = ("{DIRECTORY}")
{limits()}
# The service compares URLs without regard to case, so the web server does too.
$HTTP["url"] =~ "(?i)^/(PSIA|camera)(/|$)" {{
  fastcgi.server = ("/" => (("socket" => "{SOCKET}", "check-local" => "disable")))
}}
"""


class WebServer:
    def __init__(self, listener: socket.socket, page: pathlib.Path) -> None:
        """Starts it inside the camera; what it accepts comes from the listener's network, the machine's."""
        DIRECTORY.mkdir()
        device.mount("tmpfs", DIRECTORY, "tmpfs", data="mode=700,size=192m")
        file = DIRECTORY / "lighttpd.conf"
        file.write_text(configuration(page))
        with LOG.open("wb") as log:
            self.process = start(["lighttpd", "-D", "-f", str(file)], stdin=listener, stderr=log)
        deadline = time.monotonic() + 5
        while "server started" not in LOG.read_text():
            if self.process.poll() is not None or time.monotonic() > deadline:
                raise Fault(f"The web server lighttpd does not start.\n{LOG.read_text()}")
            time.sleep(0.005)

    def stop(self) -> None:
        """A client has half a second to take the answer that is being sent."""
        self.process.send_signal(signal.SIGINT)
        try:
            self.process.wait(0.5)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
