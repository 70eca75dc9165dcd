"""The service in a simulated camera, seen from all sides: what a client receives, what the daemons find in
the database and on the message queues, what the process prints. A test file is run by camera-inside."""
import base64
import ctypes
import datetime
import mmap
import os
import pathlib
import re
import signal
import socket
import sqlite3
import struct
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "scripts/lib"))
from fastcgi import Connection

DIRECTORY = pathlib.Path("/usr/local/orvid")
DATABASE = DIRECTORY / "morvid.db"
DEFAULTS = DIRECTORY / "conf/default.db"
RESOLVER = pathlib.Path("/etc/resolv.conf")
FACTORY_DATA = pathlib.Path("/dev/mtdblock7")
FACTORY_FILES = {path: path.read_bytes() for path in (DATABASE, DEFAULTS, RESOLVER, FACTORY_DATA)}
SOCKET = str(DIRECTORY / "psia.sock")

STATUSES = {1: "OK", 2: "Device Busy", 3: "Device Error", 4: "Invalid Operation", 5: "Invalid XML Format",
            6: "Invalid XML Content", 7: "Reboot Required"}
UNAUTHORIZED = ("Status: 401 Unauthorized\r\n"
                'WWW-Authenticate: Basic realm="Quellan Smart IP Device Authentication"\r\n'
                "Content-Type: text/plain\r\n\r\nUnauthorized\r\n\r\n")


def status(code, uri):
    """The bytes of a ResponseStatus answer to a request for `uri`."""
    body = f"""<?xml version="1.0" encoding="UTF-8" ?>
<ResponseStatus version="1.0" xmlns="urn:psialliance-org">
<requestURL>{uri}</requestURL>
<statusCode>{code}</statusCode>
<!-- O=1-OK, 2-Device Busy, 3-Device Error, 4-Invalid Operation, 5-Invalid XML Format, \
6-Invalid XML content; 7-Reboot Required -->
<statusString>{STATUSES.get(code)}</statusString>
<id>1</id>
</ResponseStatus>
"""
    return (f"Content-Length: {len(body.encode())}\r\n"
            f'Content-Type: application/xml; charset="UTF-8"\r\n\r\n{body}')


def elements(answer):
    """The texts of a document by the names of their elements."""
    return dict(re.findall(r"<(\w+)>([^<]*)</", answer))


def offset_of(local_time):
    """By how many seconds a local time that was just shown is ahead of UTC."""
    ahead = datetime.datetime.fromisoformat(local_time + "+00:00").timestamp() - time.time()
    return 10 * round(ahead / 10)  # the answer may be a few seconds old


# Control messages: for each command its name and its fields: name, offset, bytes of a text (0: a number).
MESSAGES = {1: ("picture", [("source", 12, 0)]), 2: ("encoder", [("master", 16, 0)]), 3: ("audio", []),
            6: ("time", [("mode", 12, 0), ("server", 16, 128), ("interval", 144, 0), ("year", 148, 0),
                         ("month", 152, 0), ("day", 156, 0), ("hour", 160, 0), ("minute", 164, 0),
                         ("second", 168, 0)]),
            7: ("time zone", [("zone", 12, 256)]), 8: ("reboot", []), 10: ("factory reset", []),
            11: ("export", []), 31: ("addressing", []), 33: ("name servers", [("servers", 12, 256)]),
            37: ("RTSP port", [])}
# An emulator may use another one of two system calls that do the same.
SYSTEM_CALLS = {"x86_64": {"read": [0], "poll": [7, 271], "msgsnd": [69], "clock_nanosleep": [230],
                           "accept": [43, 288]},
                "aarch64": {"read": [63], "poll": [73], "msgsnd": [189], "clock_nanosleep": [115],
                            "accept": [202, 242]}}
RECORD = struct.calcsize("@l") + 4112
libc = ctypes.CDLL(None, use_errno=True)


class Queue:
    """One of the two System V queues between the service and the daemons."""
    NOWAIT, CREATE, REMOVE = 0o4000, 0o1000, 0

    def __init__(self, key):
        self.key = key

    def number(self, flags=0):
        return libc.msgget(self.key, flags)

    def create(self):
        self.remove()
        assert self.number(self.CREATE | 0o666) >= 0

    def receive(self):
        """The next message, or None."""
        record = ctypes.create_string_buffer(RECORD)
        got = libc.msgrcv(self.number(), record, 4112, ctypes.c_long(0), self.NOWAIT)
        return Message(record.raw) if got >= 0 else None

    def next(self):
        """The next message, for which it waits."""
        return eventually(self.receive, "a control message")

    def remove(self):
        libc.msgctl(self.number(), self.REMOVE, None)

    def send(self, record):
        """Whether there was room."""
        return libc.msgsnd(self.number(), record, 4112, self.NOWAIT) == 0

    def fill(self):
        while self.send(b"\1".ljust(RECORD, b"\0")):
            pass


class Message:
    def __init__(self, record):
        self.type = struct.unpack_from("@l", record)[0]
        self.body = record[struct.calcsize("@l"):]
        self.command = self.number(4)

    def number(self, offset):
        """Offsets count as on the device, where the type word has 4 bytes."""
        return struct.unpack_from("<i", self.body, offset - 4)[0]

    def text(self, offset, size):
        return self.body[offset - 4:offset - 4 + size].split(b"\0")[0].decode()

    def words(self, service):
        """The whole record: "message 2 encoder: master = 1"; "byte 200 = 7" for what belongs to no field."""
        name, fields = MESSAGES.get(self.command, ("unknown", []))
        rest = bytearray(self.body)
        rest[0:4] = bytes(4)
        told = [] if self.type == service else [f"type = {self.type}"]
        for field, offset, size in fields:
            value = self.text(offset, size) if size else self.number(offset)
            told.append(f"{field} = {value}")
            length = len(value) if size else 4
            rest[offset - 4:offset - 4 + length] = bytes(length)
        told += [f"byte {offset + 4} = {byte}" for offset, byte in enumerate(rest) if byte]
        return f"message {self.command} {name}" + (": " if told else "") + ", ".join(told)


def reply(message, result, payload=b""):
    """The record by which a daemon answers."""
    return (struct.pack("@lii", message.type, message.command, result) + payload).ljust(RECORD, b"\0")


REQUESTS, REPLIES = Queue(1111), Queue(2222)


def eventually(condition, what):
    """Waits until the condition gives something true, and gives that."""
    deadline = time.monotonic() + 10
    while not (found := condition()):
        assert time.monotonic() < deadline, f"not seen within 10 s: {what}"
        time.sleep(0.005)
    return found


class FaultPlan(ctypes.Structure):
    """What the fault library in the service is told, and tells."""
    _fields_ = [(name, ctypes.c_int) for name in ("kind", "skip", "fail", "speed", "slept")]
    MEMORY, WRITE, SYNC, LOCK, STOP, READ = range(1, 7)

    @staticmethod
    def create():
        path = DIRECTORY / "faults"
        path.write_bytes(bytes(ctypes.sizeof(FaultPlan)))
        with open(path, "r+b") as file:
            return FaultPlan.from_buffer(mmap.mmap(file.fileno(), 0))

    def let_fail(self, kind, skip=0, fail=1):
        """So many operations of the kind go well, then so many fail."""
        self.skip, self.fail, self.kind = skip, fail, kind


class Camera:
    """A camera in its factory state, with nothing running yet."""
    last_request = ""  # for what a failed test says

    def __init__(self, program):
        self.program = program
        self.process = None
        self.environment = {}  # of every service that is started
        self.before_start = None  # called in the new process
        self.settings_content = self.settings_values = None  # as they were read last
        DATABASE.unlink(missing_ok=True)
        for path, content in FACTORY_FILES.items():
            path.write_bytes(content)
        REQUESTS.create()
        REPLIES.create()

    # The service's process.

    def start_service(self, environment=None, cgi=False):
        """`cgi`: as a plain CGI program, whose request is in `environment`."""
        (DIRECTORY / "stdout").write_bytes(b"")
        (DIRECTORY / "stderr").write_bytes(b"")
        pathlib.Path(SOCKET).unlink(missing_ok=True)
        with open("/dev/null", "rb") if cgi else socket.socket(socket.AF_UNIX) as listener, \
                open(DIRECTORY / "stdout", "ab") as out, open(DIRECTORY / "stderr", "ab") as errors:
            if not cgi:
                listener.bind(SOCKET)
                listener.listen(128)
            self.process = subprocess.Popen([self.program], stdin=listener, stdout=out, stderr=errors,
                                            env=os.environ | self.environment | (environment or {}),
                                            preexec_fn=self.before_start)

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
        numbers = [str(number) for number in SYSTEM_CALLS[os.uname().machine][system_call]]
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

    def execute(self, sql, database=DATABASE):
        """Changes the database, as a daemon would."""
        connection = sqlite3.connect(database)
        connection.executescript(sql)
        connection.close()

    def rows(self, select_statement, database=DATABASE):
        connection = sqlite3.connect(database)
        found = connection.execute(select_statement).fetchall()
        connection.close()
        return found

    def settings(self):
        """All values of all tables: {("Event", rowid): {"Week": 62, ...}, ...}."""
        content = DATABASE.read_bytes()
        if content != self.settings_content:  # reading them is slow
            self.settings_content, self.settings_values = content, self.read_settings()
        return self.settings_values

    @staticmethod
    def read_settings():
        connection = sqlite3.connect(DATABASE)
        connection.row_factory = sqlite3.Row
        tables = [name for name, in connection.execute("select name from sqlite_master where type='table'")]
        values = {(table, row[0]): dict(zip(row.keys()[1:], row[1:]))
                  for table in tables for row in connection.execute(f"select rowid, * from {table}")}
        connection.close()
        return values

    @staticmethod
    def changes(before, after):
        """As "Event.Week = 2"; rows of a table with several by their first column: "Audio[0].Enable = 0"."""
        def place(settings, key):
            several = sum(table == key[0] for table, _ in settings) > 1
            return f"{key[0]}[{next(iter(settings[key].values()))}]" if several else key[0]
        lines = []
        for key in sorted(before.keys() | after.keys()):
            if key not in after:
                lines.append(f"{place(before, key)} is deleted")
            elif key not in before:
                values = ", ".join(f"{name} = {value}" for name, value in after[key].items())
                lines.append(f"{place(after, key)} is added: {values}")
            else:
                lines += [f"{place(before, key)}.{name} = {value}" for name, value in after[key].items()
                          if value != before[key][name]]
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
            lines.append(message.words(self.process.pid))
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
