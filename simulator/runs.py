"""What tells of a run while it lasts: a socket by which --shell finds it, and the file that --ready-file
names."""
import hashlib
import os
import pathlib
import re
import socket

from simulator import Fault

READY_CONTENT = re.compile(r"(http://\S+\n)*")


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
    processes = {}
    for port, process in re.findall(rf" @{name_of(directory)}(\d+)-(\d+)$", sockets, re.MULTILINE):
        path = pathlib.Path("/proc", process)
        if path.exists() and path.stat().st_uid == os.geteuid():
            processes[int(port)] = int(process)
    return processes


class ReadyFile:
    """Tells test programs when the cameras answer, and at which URLs."""

    def __init__(self, path: pathlib.Path | None) -> None:
        self.path: pathlib.Path | None = None
        self.written: os.stat_result | None = None
        if not path:
            return
        try:
            directory = os.open(path.parent, os.O_PATH | os.O_DIRECTORY)
            # By this name the camera reaches the directory also where its own files cover it.
            self.path = pathlib.Path(f"/proc/self/fd/{directory}") / path.name
            ours = (
                path.is_file()
                and not path.is_symlink()
                and READY_CONTENT.fullmatch(path.read_text(errors="replace"))
            )
            if ours:
                path.unlink()  # of a run that was killed, or empty
        except OSError as error:
            raise Fault(f"Cannot write {path}: {error.strerror}") from error
        if path.exists() or path.is_symlink():
            raise Fault(f"{path} is there, and no camera wrote it. Give --ready-file another name.")

    def write(self, text: str) -> None:
        """The file appears with its whole content."""
        if not self.path:
            return
        draft = self.path.with_name(f".{self.path.name}.{os.getpid()}")
        try:
            draft.write_text(text)
            self.written = draft.stat()
            draft.rename(self.path)
        except OSError as error:
            raise Fault(f"Cannot write the ready file: {error.strerror}") from error

    def remove(self) -> None:
        """Removes the file that write() made, and no other."""
        if (
            self.path
            and self.written
            and self.path.exists()
            and os.path.samestat(self.path.stat(), self.written)
        ):
            self.path.unlink()
