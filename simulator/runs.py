"""What a run leaves in the file system while it lasts: a file that names its process and port, for --shell,
and the file that --ready-file names. Nothing that a person named is removed unless a run wrote it."""
import fcntl
import os
import pathlib
import re
from collections.abc import Iterator
from typing import NamedTuple

from simulator import Fault

RUN_CONTENT = re.compile(r"(?:(\d+) (\d+)\n)?")  # process and port; empty for an instant
READY_CONTENT = re.compile(r"(http://\S+\n)*")


def lock(path: pathlib.Path, flags: int = os.O_RDWR) -> int | None:
    """A descriptor that holds a lock on the file until it is closed; None when another process has it."""
    descriptor = os.open(path, flags | os.O_CLOEXEC, 0o600)
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        os.close(descriptor)
        return None
    return descriptor


class Run(NamedTuple):
    process: int
    port: int


def runs_in(directory: pathlib.Path) -> Iterator[tuple[pathlib.Path, Run]]:
    """The files of runs, also of those that were killed."""
    for path in directory.glob("camera-*"):
        try:
            found = RUN_CONTENT.fullmatch(path.read_text(errors="replace"))
        except OSError:
            continue
        if found and not path.is_symlink():
            yield path, Run(int(found[1] or 0), int(found[2] or 0))


def running(directory: pathlib.Path) -> list[Run]:
    runs = []
    for path, run in runs_in(directory):
        descriptor = lock(path)
        if descriptor is None:
            runs.append(run)
        else:
            os.close(descriptor)
    return runs


class RunFile:
    """camera-PORT in a directory: says which process the camera on that port is, and is locked as long as it
    lives."""

    def __init__(self, directory: pathlib.Path, port: int) -> None:
        self.path = directory / f"camera-{port}"
        try:
            directory.mkdir(parents=True, exist_ok=True)
            turn = os.open(directory, os.O_RDONLY | os.O_DIRECTORY)
            fcntl.flock(turn, fcntl.LOCK_EX)  # so that no other run takes the new file for an old one
            for path, _ in runs_in(directory):
                if descriptor := lock(path):
                    path.unlink()  # of a run that was killed
                    os.close(descriptor)
            self.descriptor = lock(self.path, os.O_RDWR | os.O_CREAT | os.O_EXCL)
            if self.descriptor is not None:
                os.write(self.descriptor, f"{os.getpid()} {port}\n".encode())
            os.close(turn)
        except OSError as error:
            raise Fault(f"Cannot make {self.path}, the file of this run: {error.strerror}") from error

    def remove(self) -> None:
        self.path.unlink(missing_ok=True)


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
