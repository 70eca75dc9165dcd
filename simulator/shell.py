"""A shell inside a camera: one that runs, or one that has only its daemons."""
import os
import pathlib
import signal
import subprocess

from simulator import Fault, clock, settings
from simulator.processes import die_with

GREETING = """A shell inside the camera. Some things to look at:
  sqlite3 -header -column {database} 'select * from Network'
  ip address show eth0; route -n; cat /etc/resolv.conf; ipcs -q; date; cat /proc/uptime
  ls /usr/local/httpd/htdocs/Web/updownload
The service by hand, as a plain CGI program (it empties the queues under a running one):
  REQUEST_METHOD=GET REQUEST_URI=/PSIA/Custom/Event \\
    HTTP_AUTHORIZATION='Basic YWRtaW46YWRtaW4=' {service} </dev/null
exit leaves it."""
SHELL = ["sh", "-c", "exec $(command -v bash && echo --norc --noprofile || echo sh)"]


def greet(service: pathlib.Path) -> dict[str, str]:
    """Gives the environment of the shell."""
    print(GREETING.format(database=settings.DATABASE, service=service), flush=True)
    return clock.environment() | {"PS1": r"camera:\w\$ "}


def start(service: pathlib.Path) -> subprocess.Popen[bytes]:
    """Starts a shell in the camera that this process has entered."""
    parent = os.getpid()
    return subprocess.Popen(SHELL, env=greet(service), preexec_fn=lambda: die_with(parent, signal.SIGHUP))


def join(process: int, service: pathlib.Path) -> None:
    """This process becomes a shell in the camera of another one."""
    spaces = pathlib.Path(f"/proc/{process}/ns")
    here = pathlib.Path("/proc/self/ns")
    wanted = [("mnt", "mount"), ("ipc", "ipc"), ("net", "net"), ("time_for_children", "time")]
    try:
        # The user namespace gives the right to enter the others.
        own_user = not os.path.samefile(spaces / "user", here / "user")
        options = [f"--user={spaces / 'user'}", "--preserve-credentials"] if own_user else []
        options += [f"--{name}={spaces / file}" for file, name in wanted if (spaces / file).exists()]
    except OSError as error:
        what = f"Cannot enter the camera of process {process}: {error.strerror}"
        raise Fault(f"{what}\nDo it as the user who runs it.") from error
    variables = greet(service)
    own = [f"{name}={value}" for name, value in variables.items() if os.environ.get(name) != value]
    enter = ["nsenter", *options, f"--wdns={os.getcwd()}", "env", "-u", "TZ", *own, *SHELL]
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    try:
        os.execvp(enter[0], enter)
    except OSError as error:
        raise Fault(f"Cannot start nsenter: {error.strerror}") from error
