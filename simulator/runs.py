"""How a run is found while it lasts: by --shell through a socket, by test programs through the file of
--ready-file. And the shell inside it."""
import atexit
import contextlib
import hashlib
import os
import pathlib
import re
import signal
import socket

from simulator import Fault, attempt, clock, settings

GREETING = """A shell inside the camera. Some things to look at:
  sqlite3 -header -column {database} 'select * from Network'
  ip address show eth0; route -n; cat /etc/resolv.conf; ipcs -q; date; cat /proc/uptime
  ls /usr/local/httpd/htdocs/Web/updownload
The service by hand, as a plain CGI program (it empties the queues under a running one):
  REQUEST_METHOD=GET REQUEST_URI=/PSIA/Custom/Event \\
    HTTP_AUTHORIZATION='Basic YWRtaW46YWRtaW4=' {service} </dev/null
exit leaves it."""
SHELL = ["sh", "-c", "exec $(command -v bash && echo --norc --noprofile || echo sh)"]


def name_of(directory: pathlib.Path) -> str:
    """How the names of the sockets of a directory's runs begin; port and process follow."""
    return f"psia-camera-{hashlib.sha1(os.fsencode(directory.absolute())).hexdigest()}-"


def announce(directory: pathlib.Path, port: int) -> socket.socket:
    """A socket in no file system: its name is gone when this process is, however that happens."""
    named = socket.socket(socket.AF_UNIX)
    named.bind(f"\0{name_of(directory)}{port}-{os.getpid()}")
    return named


def running(directory: pathlib.Path) -> dict[int, int]:
    """The processes of the directory's runs by their ports: this user's, since anybody may use such names."""
    sockets = pathlib.Path("/proc/net/unix").read_text()
    found = {}
    for port, process in re.findall(rf" @{name_of(directory)}(\d+)-(\d+)$", sockets, re.MULTILINE):
        with contextlib.suppress(FileNotFoundError):  # it has just ended
            if os.stat(f"/proc/{process}").st_uid == os.geteuid():
                found[int(port)] = int(process)
    return found


def greet(service: pathlib.Path) -> dict[str, str]:
    """Gives the environment of the shell."""
    print(GREETING.format(database=settings.DATABASE, service=service), flush=True)
    return clock.environment() | {"PS1": r"camera:\w\$ "}


def join_shell(process: int, service: pathlib.Path) -> None:
    """This process becomes a shell in the camera of another one."""
    spaces = pathlib.Path(f"/proc/{process}/ns")
    enter = ["nsenter", f"--target={process}", "--mount", "--ipc", "--net", f"--wdns={os.getcwd()}"]
    with attempt(f"enter the camera of process {process}", "\nDo it as the user who runs it."):
        # The user namespace gives the right to enter the others.
        if not os.path.samefile(spaces / "user", "/proc/self/ns/user"):
            enter += ["--user", "--preserve-credentials"]
        if (spaces / "time_for_children").exists():
            enter.append(f"--time={spaces}/time_for_children")
        # Not nsenter itself: libfaketime would leave files in the machine's /dev/shm.
        own = [f"{name}={value}" for name, value in greet(service).items() if os.environ.get(name) != value]
        signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # Python ignores it, and so would the shell
        os.execvp(enter[0], [*enter, "env", "-u", "TZ", *own, *SHELL])


def claim_ready_file(path: pathlib.Path) -> pathlib.Path:
    """Gives where to write it. Refuses a file that is there, unless a killed camera left it."""
    with attempt(f"write {path}"):
        directory = os.open(path.parent, os.O_PATH | os.O_DIRECTORY)
        if path.is_file() and not path.is_symlink():
            if re.fullmatch(r"(http://\S+\n)*", path.read_text(errors="replace")):
                path.unlink()  # of a run that was killed, or empty
    if os.path.lexists(path):
        raise Fault(f"{path} is there, and no camera wrote it. Give --ready-file another name.")
    # By this name the camera reaches the directory also where its own files cover it.
    return pathlib.Path(f"/proc/self/fd/{directory}", path.name)


def write_ready_file(path: pathlib.Path, text: str) -> None:
    """The file appears with its whole content. This process removes it at its end, and no other file."""
    draft = path.with_name(f".{path.name}.{os.getpid()}")
    with attempt("write the ready file"):
        draft.write_text(text)
        written = draft.stat()
        draft.rename(path)

    @atexit.register
    def remove() -> None:
        with contextlib.suppress(FileNotFoundError):
            if os.path.samestat(path.stat(), written):
                path.unlink()
