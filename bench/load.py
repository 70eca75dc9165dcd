"""Starts the service, sends it requests as a web server does, checks the answers, and prints what they cost
as lines "NAME VALUE". Runs inside a simulated camera without daemons:

    python3 simulator inside --without-daemons python3 bench/load.py --kind deviceInfo -- build/psia.fcgi

The service may stand behind a program that runs it in its own process, such as valgrind or strace -D."""
import argparse
import os
import pathlib
import re
import signal
import socket
import statistics
import struct
import subprocess
import sys
import time
from typing import NamedTuple

from fastcgi_client import Connection
from simulator import messages, settings

SOCKET = str(settings.DIRECTORY / "bench.socket")
USERS, STATUS, DONE = "/PSIA/Security/AAA/users", "/PSIA/Streaming/status", "<statusCode>1<"


class Kind(NamedTuple):
    """A request. Its answer must hold `expected`."""
    method: str
    uri: str
    expected: str
    body: str = ""  # {n} becomes the number of the request
    rows: str = ""  # the statements that prepare the settings when only this kind is sent
    message: bool = False  # the daemons are told


def users(count: int) -> str:
    return f"""delete from User where UserID != 'admin';
        with recursive n(i) as (select 2 union all select i + 1 from n)
        insert into User select 'viewer' || (10000 + i), 'secret', 2 from n limit {count - 1}"""


def viewers(count: int) -> str:
    return f"""delete from ClientList;
        with recursive n(i) as (select 1 union all select i + 1 from n)
        insert into ClientList
        select i, 'Master-0', '192.168.' || (100 + i / 100) || '.' || (100 + i % 100), 50000 from n
        limit {count}"""


KINDS = {
    "index": Kind("GET", "/PSIA/index", "<ResourceList"),
    "recursive index": Kind("GET", "/PSIA/indexr", "<ResourceList"),
    "401, no credentials": Kind("GET", "/PSIA/index", "Status: 401 "),
    "unknown URL": Kind("GET", "/PSIA/System/nothing", "<statusCode>4<"),
    "time": Kind("GET", "/PSIA/System/time", "<Time"),
    "deviceInfo": Kind("GET", "/PSIA/System/deviceInfo", "<DeviceInfo"),
    "interfaces": Kind("GET", "/PSIA/System/Network/interfaces", "<NetworkInterfaceList"),
    "channels": Kind("GET", "/PSIA/Streaming/channels", "<StreamingChannelList"),
    "capabilities": Kind("GET", "/PSIA/Streaming/channels/1/capabilities", "<StreamingChannel"),
    "users, 3 rows": Kind("GET", USERS, "<UserList", rows=users(3)),
    "users, 100 rows": Kind("GET", USERS, "<UserList", rows=users(100)),
    "users, 1,000 rows": Kind("GET", USERS, "<UserList", rows=users(1000)),
    "status, no viewer": Kind("GET", STATUS, "<StreamingStatus", rows=viewers(0)),
    "status, 100 viewers": Kind("GET", STATUS, "<StreamingStatus", rows=viewers(100)),
    "status, 1,000 viewers": Kind("GET", STATUS, "<StreamingStatus", rows=viewers(1000)),
    "PUT audio": Kind("PUT", "/PSIA/System/Audio/channels/1", DONE, """\
<AudioChannel><id>1</id><enabled>true</enabled><audioMode>listenonly</audioMode></AudioChannel>
""", message=True),
    "PUT schedule": Kind("PUT", "/PSIA/Custom/Event/schedule", DONE, """\
<EventSchedule><TimeBlockList><TimeBlock><dayOfWeek>2</dayOfWeek><TimeRange><beginTime>08:00:00</beginTime>\
<endTime>18:30:00</endTime></TimeRange></TimeBlock></TimeBlockList></EventSchedule>"""),
    "POST user": Kind("POST", USERS, DONE, """\
<User><userName>user-{n}</userName><password>secret</password></User>"""),
    "DELETE users": Kind("DELETE", USERS, DONE),
}
ADMIN = "Basic YWRtaW46YWRtaW4="
LIGHTTPD = f"""server.modules = ("mod_fastcgi")
server.bind = "127.0.0.1"
server.port = 8000
server.document-root = "/usr/local"
fastcgi.server = ("/PSIA" => (("socket" => "{SOCKET}", "check-local" => "disable")))
"""
# What lighttpd sends for a client like curl.
VARIABLES = {
    "DOCUMENT_ROOT": "/usr/local/httpd/htdocs",
    "GATEWAY_INTERFACE": "CGI/1.1",
    "HTTP_ACCEPT": "*/*",
    "HTTP_HOST": "192.168.1.10",
    "HTTP_USER_AGENT": "curl/7.88.1",
    "QUERY_STRING": "",
    "REDIRECT_STATUS": "200",
    "REMOTE_ADDR": "192.168.1.50",
    "REMOTE_PORT": "51234",
    "REQUEST_SCHEME": "http",
    "SERVER_ADDR": "192.168.1.10",
    "SERVER_NAME": "192.168.1.10",
    "SERVER_PORT": "80",
    "SERVER_PROTOCOL": "HTTP/1.1",
    "SERVER_SOFTWARE": "lighttpd/1.4.69",
}


class Server:
    def __init__(self, command: list[str]) -> None:
        for word in command:
            if os.path.isfile(word):
                # Pages of a program just built would count as dirty until they are on the medium.
                with open(word, "rb") as file:
                    os.fsync(file.fileno())
        pathlib.Path(SOCKET).unlink(missing_ok=True)
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(SOCKET)
            listener.listen(128)
            self.process = subprocess.Popen(command, stdin=listener, stdout=subprocess.DEVNULL)
        self.sent = 0

    def request(self, kind: Kind) -> None:
        if kind.message:
            # The reply is in the queue before the service looks for it: no daemon could be faster.
            done = struct.pack("@l", self.process.pid).ljust(messages.TYPE_WORD + messages.BODY, b"\0")
            assert messages.REPLIES.send(done), "the reply queue is full"
        body = kind.body.replace("{n}", str(1000000 + self.sent)).encode()
        variables = VARIABLES | {
            "REQUEST_METHOD": kind.method,
            "REQUEST_URI": kind.uri,
            "SCRIPT_NAME": kind.uri,
            "SCRIPT_FILENAME": VARIABLES["DOCUMENT_ROOT"] + kind.uri,
            "CONTENT_LENGTH": str(len(body)),
        }
        if "401" not in kind.expected:
            variables["HTTP_AUTHORIZATION"] = ADMIN
        answer = Connection(SOCKET, variables, body).receive()[0]
        assert kind.expected in answer, f"wrong answer to {kind.method} {kind.uri}: {answer}"
        assert not kind.message or messages.REQUESTS.receive(), f"no message after {kind.method} {kind.uri}"
        self.sent += 1

    def drive(self, kinds: list[Kind], count: int) -> None:
        for number in range(count):
            self.request(kinds[number % len(kinds)])

    def wait_until_idle(self) -> None:
        """It sleeps when it waits for a request."""
        calm = 0
        while calm < 10:
            time.sleep(0.01)
            state = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().rpartition(") ")[2][0]
            assert state != "Z", "the server has ended"
            calm = calm + 1 if state == "S" else 0

    def kilobytes(self, file: str, name: str) -> int:
        text = pathlib.Path(f"/proc/{self.process.pid}/{file}").read_text()
        return int(re.search(rf"^{name}:\s+(\d+) kB", text, re.MULTILINE)[1])

    def private(self) -> int:
        self.wait_until_idle()
        return self.kilobytes("smaps_rollup", "Private_Dirty")

    def processor_seconds(self) -> float:
        return time.clock_gettime((~self.process.pid << 3) | 2)  # as clock_getcpuclockid(3) gives it

    def stop(self) -> None:
        self.process.terminate()
        status = self.process.wait()
        assert status in (0, -signal.SIGTERM), f"the server ended with status {status}"


def measure(command: list[str], kinds: list[Kind], requests: int, rounds: int) -> None:
    server = Server(command)
    print("private_start_kb", server.private())
    server.drive(kinds, 1)
    print("private_first_kb", server.private())
    times = []
    for _ in range(rounds):
        begin = server.processor_seconds()
        server.drive(kinds, requests // rounds)
        times.append((server.processor_seconds() - begin) / (requests // rounds))
    print("private_end_kb", server.private())
    print("peak_kb", server.kilobytes("status", "VmHWM"))
    print(f"cpu_us {min(times) * 1e6:.2f}")  # of the round that was disturbed least
    server.stop()


def measure_starts(command: list[str], kinds: list[Kind], starts: int) -> None:
    times = []
    for _ in range(starts):
        begin = time.monotonic()
        server = Server(command)
        server.drive(kinds, 1)
        times.append(time.monotonic() - begin)
        server.stop()
    print(f"first_answer_ms {statistics.median(times) * 1000:.2f}")


def measure_behind_lighttpd(command: list[str], kind: Kind) -> None:
    configuration = settings.DIRECTORY / "lighttpd.conf"
    configuration.write_text(LIGHTTPD)
    server = Server(command)
    lighttpd = subprocess.Popen(["lighttpd", "-D", "-f", configuration], stderr=subprocess.DEVNULL)
    wrk = ["wrk", "-t1", "-c4", "-d3", "-H", "Authorization: " + ADMIN, "http://127.0.0.1:8000" + kind.uri]
    try:
        time.sleep(0.5)
        said = subprocess.run(wrk, stdout=subprocess.PIPE, text=True, check=True).stdout
    finally:
        lighttpd.terminate()
        lighttpd.wait()
    assert "Non-2xx" not in said and "Socket errors" not in said, said
    print("per_second", re.search(r"Requests/sec: *([\d.]+)", said)[1])
    server.stop()


def main() -> None:
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    option = parser.add_argument
    option("--kind", choices=[*KINDS, "all"], default="all", help="what to send; all: in turn")
    option("--request", metavar="REQUEST", help='send "METHOD URI" as the administrator instead')
    option("--body", metavar="FILE", help="of that request, which must be answered with status 1")
    option("--requests", type=int, default=1000, help="how many, besides the first")
    option("--rounds", type=int, default=1, help="the best of so many counts for the processor time")
    option("--starts", type=int, default=0, help="start it so often instead, for one request each")
    option("--web", action="store_true", help="measure how many a second pass through lighttpd instead")
    option("server", nargs="+")
    options = parser.parse_args()
    kinds = list(KINDS.values()) if options.kind == "all" else [KINDS[options.kind]]
    if options.request:
        method, uri = options.request.split()
        kinds = [Kind(method, uri, DONE, pathlib.Path(options.body).read_text())]
    if len(kinds) == 1 and kinds[0].rows:
        settings.execute(kinds[0].rows)
    if options.starts:
        measure_starts(options.server, kinds, options.starts)
    elif options.web:
        measure_behind_lighttpd(options.server, kinds[0])
    else:
        measure(options.server, kinds, options.requests, options.rounds)
    sys.stdout.flush()
    while True:  # a tracer that the server leaves running, and that sums up
        try:
            os.wait()
        except ChildProcessError:
            return


if __name__ == "__main__":
    main()
