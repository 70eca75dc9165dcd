"""A simulated camera for tests: RunningCamera, and the pytest fixture `camera`, which a test file imports."""
import atexit
import base64
import functools
import http.client
import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable
from typing import Any, TypeVar
from urllib.parse import urlencode, urlsplit

import pytest

from simulator import PROJECT
from simulator.processes import start

Found = TypeVar("Found")


def eventually(condition: Callable[[], Found], what: str) -> Found:
    """Waits until the condition gives something true, and gives that."""
    deadline = time.monotonic() + 30
    while not (found := condition()):
        assert time.monotonic() < deadline, f"not seen: {what}"
        time.sleep(0.005)
    return found


class RunningCamera:
    """A camera on any free port, in a process of its own that ends with this one. The options are those of
    scripts/run. The service is the built one, or the program that the variable PSIA_BINARY names."""

    def __init__(self, *options: str, directory: pathlib.Path | None = None) -> None:
        """`directory`: for the files of its run; a temporary one unless given."""
        service = pathlib.Path(os.environ.get("PSIA_BINARY", PROJECT / "build/psia.fcgi"))
        if not service.exists():
            subprocess.run([PROJECT / "scripts/run", "--build"], check=True)
        self.temporary = tempfile.TemporaryDirectory(prefix="camera-")
        directory = directory or pathlib.Path(self.temporary.name)
        self.ready_file, self.terminal = directory / "ready", directory / "terminal"
        self.since = 0  # id of the journal's newest entry at the last reset
        command = [sys.executable, str(PROJECT / "simulator"), "camera", "--port", "0"]
        command += ["--ready-file", str(self.ready_file), "--run-directory", str(directory)]
        with self.terminal.open("w") as terminal:
            command += [*options, "--", str(service)]
            self.process = start(command, signal.SIGTERM, stdout=terminal, stderr=subprocess.STDOUT)
        eventually(lambda: self.ready_file.exists() or self.process.poll() is not None, "the camera's start")
        assert self.ready_file.exists(), f"the camera does not start:\n{self.shown()}"
        self.urls = self.ready_file.read_text().split()
        self.url = self.urls[0]
        atexit.register(self.stop)  # so that it has ended when this process has

    def ask(
        self, method: str, path: str, body: str | bytes = b"", user: str = "admin:admin", **headers: str
    ) -> tuple[int, str]:
        """HTTP status and body of the answer; a status of 0 when there is none."""
        content = body.encode() if isinstance(body, str) else body
        headers["Authorization"] = "Basic " + base64.b64encode(user.encode()).decode()
        # An export may take 180 seconds.
        connection = http.client.HTTPConnection(urlsplit(self.url).netloc, timeout=240)
        try:
            connection.request(method, path, content or None, headers)
            answer = connection.getresponse()
            return answer.status, answer.read().decode(errors="surrogateescape")
        except OSError:
            return 0, ""

    def get(self, path: str) -> str:
        return self.ask("GET", path)[1]

    def put(self, path: str, body: str | bytes = b"", method: str = "PUT") -> str:
        return self.ask(method, path, body)[1]

    def control(self, method: str, path: str, body: str = "") -> dict[str, Any]:
        """What the camera answers below /camera/, when it does not refuse."""
        status, said = self.ask(method, "/camera/" + path, body)
        assert status == 200, said
        return dict(json.loads(said))

    def answers(self, rules: str) -> None:
        """Sets how the daemons answer from now on: "3=busy"."""
        self.control("PUT", "answers", rules)

    def reset(self) -> None:
        """Factory settings, and all else as at the start."""
        self.since = self.control("PUT", "reset")["last"]

    def now(self) -> dict[str, Any]:
        """The state of the camera."""
        return dict(self.control("GET", f"log?since={self.since}")["now"])

    def log(self, contains: str = "", wait: int = 0) -> list[dict[str, Any]]:
        """The journal's entries since the last reset that contain a text; waits so many seconds for one."""
        query = urlencode({"since": self.since, "contains": contains, "wait": wait})
        return list(self.control("GET", "log?" + query)["entries"])

    def stream_url(self, stream: str, user: str = "admin:admin") -> str:
        """Of "Master-0" or "Slave-0" of a camera with --video."""
        host = urlsplit(self.url).netloc.rpartition(":")[0]
        return f"rtsp://{user}@{host}:{self.now()['videoPort']}/{stream}"

    def shown(self) -> str:
        """What a person sees on the terminal."""
        return self.terminal.read_text(errors="surrogateescape")

    def shows(self, *lines: str) -> None:
        for line in lines:
            eventually(lambda: line in self.shown(), f"'{line}' on the terminal:\n{self.shown()}")

    def stop(self) -> int:
        """Ends the camera. Gives its exit status."""
        self.process.terminate()
        status = self.process.wait(20)
        self.temporary.cleanup()
        return status


running_camera = functools.cache(RunningCamera)


@pytest.fixture
def camera() -> RunningCamera:
    """The one camera of a test run, in its factory state."""
    running = running_camera()
    running.reset()
    return running
