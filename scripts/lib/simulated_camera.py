"""A simulated camera for checks that use it as a person does: over HTTP, and with an eye on the terminal."""
import base64
import ctypes
import os
import signal
import socket
import subprocess
import sys
import time
import urllib.error
import urllib.request


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def end_with_test():
    """What a process of the test does first, so that it is killed when the test ends, however that happens
    (PR_SET_PDEATHSIG of prctl(2))."""
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)


def eventually(condition, what):
    """Waits until the condition gives something true, and gives that."""
    deadline = time.monotonic() + 30
    while time.monotonic() < deadline:
        found = condition()
        if found:
            return found
        time.sleep(0.1)
    sys.exit("not seen: " + what)


class Camera:
    def __init__(self, simulator, service, page, directory, port=None, boot=1):
        self.port = port or free_port()
        self.log_path = directory + "/terminal"
        with open(self.log_path, "wb") as terminal:
            command = [os.path.abspath(simulator), "--port", str(self.port), "--page", page]
            command += ["--boot", str(boot), "--run-directory", directory + "/run", "--", service]
            self.process = subprocess.Popen(command, stdout=terminal, preexec_fn=end_with_test)
        eventually(lambda: "service started" in self.log(), "the camera's start")

    def log(self):
        with open(self.log_path, encoding="utf-8") as file:
            return file.read()

    def logs(self, *lines):
        for line in lines:
            eventually(lambda: line in self.log(), f"'{line}' on the terminal:\n{self.log()}")

    def ask(self, method, path, body=None, user="admin:admin"):
        """Status and body of the answer; a status of 0 when there is none."""
        request = urllib.request.Request(f"http://127.0.0.1:{self.port}{path}", body, method=method)
        request.add_header("Authorization", "Basic " + base64.b64encode(user.encode()).decode())
        try:
            with urllib.request.urlopen(request, timeout=20) as answer:
                return answer.status, answer.read()
        except urllib.error.HTTPError as error:
            return error.code, error.read()
        except OSError:
            return 0, b""

    def get(self, path):
        return self.ask("GET", "/PSIA" + path)[1].decode()

    def put(self, path, body="", method="PUT"):
        content = body if isinstance(body, bytes) else body.encode()
        answer = self.ask(method, "/PSIA" + path, content)[1].decode()
        if "<statusCode>1<" not in answer:
            sys.exit(f"{method} {path} is refused: {answer}\n{self.log()}")
