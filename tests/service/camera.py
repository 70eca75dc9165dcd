"""The service in a simulated camera, seen from all sides: what a client receives, what the daemons find in
the database and on the message queue, what the process prints. A test file runs inside a camera."""
import base64
import contextlib
import os
import pathlib
import re
import signal
import socket
import subprocess
import time

from answers import contents, status
from bench.fastcgi_client import Connection
from faults import SYSTEM_CALLS
from simulator import messages, settings
from simulator.device import FACTORY_DATA, RESOLVER
from simulator.messages import reply
from simulator.settings import DATABASE, DEFAULTS, DIRECTORY
from simulator.testing import eventually

FACTORY_FILES = {path: path.read_bytes() for path in (DATABASE, DEFAULTS, RESOLVER, FACTORY_DATA)}
SOCKET = str(DIRECTORY / "psia.sock")


class Queue(messages.Queue):
    """One of the two System V queues between the service and the daemons."""
    def next(self):
        """The next message, for which it waits."""
        return eventually(self.receive, "a control message")

    def fill(self):
        while self.send(b"\1".ljust(messages.TYPE_WORD + messages.BODY, b"\0")):
            pass


REQUESTS, REPLIES = Queue(messages.REQUESTS.key), Queue(messages.REPLIES.key)


class Camera:
    """A camera in its factory state, with nothing running yet."""
    last_request = ""  # for what a failed test says

    def __init__(self, program):
        self.program = program
        self.process = None
        self.environment = {}  # of every service that is started
        self.settings_content = self.settings_values = None  # as they were read last
        DATABASE.unlink(missing_ok=True)
        for path, content in FACTORY_FILES.items():
            path.write_bytes(content)
        REQUESTS.create()
        REPLIES.create()

    # The service's process.

    def start_service(self, environment=None, cgi=None):
        """`cgi`: the standard input of a plain CGI program, whose request is in `environment`."""
        (DIRECTORY / "stdout").write_bytes(b"")
        (DIRECTORY / "stderr").write_bytes(b"")
        pathlib.Path(SOCKET).unlink(missing_ok=True)
        with cgi or socket.socket(socket.AF_UNIX) as listener, \
                open(DIRECTORY / "stdout", "ab") as out, open(DIRECTORY / "stderr", "ab") as errors:
            if not cgi:
                listener.bind(SOCKET)
                listener.listen(128)
            self.process = subprocess.Popen([self.program], stdin=listener, stdout=out, stderr=errors,
                                            env=os.environ | self.environment | (environment or {}))

    def stop_service(self, number=signal.SIGTERM):
        """Its exit status, or minus the signal that ended it."""
        self.process.send_signal(number)
        return self.wait_for_exit()

    def wait_for_exit(self):
        try:
            return self.process.wait(20)
        finally:
            self.process.kill()  # one that does not end
            self.process = None

    def end(self):
        if self.process is not None:
            result = self.stop_service()
            assert result == 0, f"The service ended with {result}:\n{self.standard_error()}"

    def state(self, file):
        """What a file of the service in /proc says."""
        return pathlib.Path(f"/proc/{self.process.pid}/{file}").read_text()

    def wait_until_blocked_in(self, system_call):
        numbers = [str(number) for number in SYSTEM_CALLS[system_call]]
        eventually(lambda: self.state("syscall").split()[0] in numbers, f"a wait in {system_call}")

    def open_descriptors(self):
        self.wait_until_blocked_in("accept")
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def memory(self, file, name):
        """Bytes, by a line of a file in /proc: memory("status", "VmRSS")."""
        self.wait_until_blocked_in("accept")
        return int(re.search(rf"^{name}:\s+(\d+)", self.state(file), re.M)[1]) * 1024

    def standard_output(self):
        return (DIRECTORY / "stdout").read_bytes().decode()

    def standard_error(self):
        return (DIRECTORY / "stderr").read_bytes().decode()

    # The settings.

    execute = staticmethod(settings.execute)  # changes the database, as a daemon would

    @staticmethod
    def rows(select_statement, database=DATABASE):
        with contextlib.closing(settings.connect(database)) as connection:
            return connection.execute(select_statement).fetchall()

    def settings(self):
        """All values of all tables."""
        content = DATABASE.read_bytes()
        if content != self.settings_content:  # reading them is slow
            with contextlib.closing(settings.connect()) as connection:
                self.settings_content, self.settings_values = content, settings.read(connection)
        return self.settings_values

    @staticmethod
    def changes(before, after):
        """As "Event.Week = 2"; rows of a table with several by their first column: "Audio[0].Enable = 0"."""
        lines = []
        for table, key, column, _, value in settings.differences(before, after):
            several = max(len(before[table]), len(after[table])) > 1
            if column:
                what = f".{column} = {value}"
            elif value is None:
                what = " is deleted"
            else:
                what = " is added: " + ", ".join(f"{name} = {part}" for name, part in value.items())
            lines.append((f"{table}[{key}]" if several else table) + what)
        return lines

    # Requests.

    def begin(self, method, uri, body="", user="admin:admin", variables=None, **options):
        """Sends a request. `variables` add to or replace those of a web server; None takes one away."""
        content = body if isinstance(body, bytes) else body.encode()
        given = {"REQUEST_METHOD": method, "REQUEST_URI": uri}
        if user:
            given["HTTP_AUTHORIZATION"] = "Basic " + base64.b64encode(user.encode()).decode()
        if content or method != "GET":
            given["CONTENT_LENGTH"] = str(len(content))
        given |= variables or {}
        Camera.last_request = f"{method} {uri}\n{content[:2000].decode(errors='replace')}"
        given = {name: value for name, value in given.items() if value is not None}
        return Connection(SOCKET, given, content, **options)

    def call(self, *request, **options):
        """The answer to a request during which no daemon works."""
        return self.begin(*request, **options).receive()[0]

    def shown(self, uri, element):
        """The texts of the elements of this name that a GET answers or prints, in order."""
        return re.findall(f"<{element}(?: [^>]*)?>([^<]*)<", self.effects("GET", uri)[-1])

    def effects(self, method, uri, body="", replies=(), **options):
        """All that follows from a request, in this order: what is stored before each message, the message,
        what is stored at the end, what is printed, what is reported, the answer. The daemons answer the
        messages with `replies`, then with 0 (done); 1 is busy, 2 failed, None is no answer."""
        settings, lines, results = self.settings(), [], list(replies)
        printed_before, reported_before = len(self.standard_output()), len(self.standard_error())

        def take_changes():
            nonlocal settings
            now = self.settings()
            lines.extend(self.changes(settings, now))
            settings = now

        def take_message():
            message = REQUESTS.receive()
            if message is None:
                return False
            take_changes()
            lines.append(contents(message, self.process.pid))
            result = results.pop(0) if results else 0
            if result is not None:
                assert REPLIES.send(reply(message, result))
            return True
        connection = self.begin(method, uri, body, **options)
        deadline = time.monotonic() + 30
        while not connection.answers_within(0.001):
            take_message()
            assert time.monotonic() < deadline, f"no answer within 30 s, after {lines}"
        answer, errors = connection.receive()
        while take_message():
            pass
        take_changes()
        lines += ["printed " + text for text in [self.standard_output()[printed_before:]] if text]
        lines += ["reported " + text for text in [self.standard_error()[reported_before:] + errors] if text]
        code = re.search(r"<statusCode>(\d)<", answer)
        if code and answer == status(int(code[1]), uri):
            answer = f"status {code[1]}"
        return lines + ([answer] if answer else [])
