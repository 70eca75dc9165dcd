"""Starts the set-up PSIA_SETUP of deploy/, and does to it what each of them once failed at."""

import base64
import concurrent.futures
import configparser
import contextlib
import http.client
import os
import pathlib
import re
import select
import shutil
import signal
import socket
import ssl
import subprocess
import threading

import pytest

from machine import CAMERA, add_user, empty, processes, run, started_again
from simulator.device import EXCHANGE
from simulator.testing import eventually

PREFIX = CAMERA / "psia"
PROGRAM = PREFIX / "libexec/psia/psia.fcgi"
SHARE = PREFIX / "share/psia"
CONFIGURATION = CAMERA / "web.conf"
ADMIN = "Basic " + base64.b64encode(b"admin:admin").decode()
OK = b"<statusCode>1</statusCode>"
pytestmark = pytest.mark.usefixtures("web_server")


def request(method, url, body=None, credentials=ADMIN, tls=False):
    """Status and body."""
    connection = http.client.HTTPConnection("127.0.0.1")
    if tls:
        connection = http.client.HTTPSConnection("127.0.0.1", context=ssl._create_unverified_context())
    connection.request(method, url, body, {"Authorization": credentials} if credentials else {})
    answer = connection.getresponse()
    return answer.status, answer.read()


def answers(tls=False):
    with contextlib.suppress(OSError):
        return request("GET", "/PSIA/index", tls=tls)[0] == 200


class Lighttpd:
    source, log = SHARE / "lighttpd.conf", "/var/log/lighttpd/access.log"

    def start(self):
        # It refuses the link that web_server() makes, and says so.
        subprocess.run([PREFIX / "libexec/psia/psia-rights", "--wait", "--socket", "www-data"])
        self.server = subprocess.Popen(["lighttpd", "-D", "-f", CONFIGURATION])

    def stop(self):
        self.server.terminate()
        self.server.wait(15)
        eventually(lambda: not processes(PROGRAM), "the end of the service")


class NginxAndSystemd(Lighttpd):
    """Does what systemd makes of the units, after systemd's own check of them."""

    source, log = SHARE / "nginx.conf", "/var/log/nginx/psia.log"

    def start(self):
        self.start_service()
        main = CAMERA / "nginx.conf"
        main.write_text(f"user www-data; daemon off; events {{}} http {{ include {CONFIGURATION}; }}")
        self.server = subprocess.Popen(["nginx", "-c", main, "-e", "/var/log/nginx/error.log"])

    def start_service(self):
        files = [PREFIX / "lib/systemd/system" / name for name in ("psia.socket", "psia.service")]
        check = ["systemd-analyze", "verify", "--man=no", *files]
        verdict = subprocess.run(check, stderr=subprocess.PIPE, text=True, check=True).stderr
        assert "psia" not in verdict, verdict
        units = configparser.ConfigParser(interpolation=None, strict=False)
        units.read(files)
        where, service = units["Socket"], units["Service"]
        assert service["StandardInput"] == "socket" and service["StandardOutput"] == "null"
        path = pathlib.Path(where["ListenStream"])
        path.parent.mkdir(mode=int(where["DirectoryMode"], 8), exist_ok=True)
        path.unlink(missing_ok=True)
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(str(path))
        shutil.chown(path, where["SocketUser"], where["SocketGroup"])
        path.chmod(int(where["SocketMode"], 8))
        self.listener.listen(int(where["Backlog"]))
        threading.Thread(target=self.keep, args=(service,), daemon=True).start()

    def keep(self, service):
        while True:
            subprocess.run(service["ExecStartPre"].lstrip("-+").split())
            self.service = subprocess.Popen(
                service["ExecStart"].split(), stdin=self.listener, stdout=subprocess.DEVNULL,
                user=service["User"], group=service["Group"], extra_groups=[], umask=int(service["UMask"], 8))
            if self.service.wait() == 0 or service["Restart"] != "on-failure":
                break

    def stop(self):
        self.service.terminate()
        assert self.service.wait(15) == 0, "a stop is no failure"
        self.listener.close()
        super().stop()


@pytest.fixture(scope="module")
def web_server():
    add_user()
    empty("/run", "/var/log", "/var/tmp", "/var/lib/nginx")
    pathlib.Path("/var/tmp").chmod(0o1777)
    run("install", "--directory", "--owner=www-data", "/var/log/lighttpd", "/var/log/nginx")
    run("cmake", "--install", os.environ["PSIA_BUILD"], "--prefix", PREFIX)
    # What a service run by root left must not stand in the way, and rights must not be given through a link.
    (EXCHANGE / "psia_config.dat").touch(0o600)
    (CAMERA / "secret").touch(0o600)
    (EXCHANGE / "link").symlink_to(CAMERA / "secret")
    started = {"lighttpd": Lighttpd, "systemd": NginxAndSystemd}[os.environ["PSIA_SETUP"]]()
    shutil.copy(started.source, CONFIGURATION)
    started.start()
    eventually(answers, "the first answer")
    return started


def switch_audio(enabled):
    body = f"<AudioChannel><enabled>{enabled}</enabled></AudioChannel>"
    return request("PUT", "/PSIA/System/Audio/channels/1", body)[1]


def test_requests_are_passed_on_with_their_credentials():
    assert request("GET", "/PSIA/System/deviceInfo", credentials=None)[0] == 401
    status, body = request("GET", "/psia/system/deviceinfo")
    assert status == 200, "lower case"
    assert b"<serialNumber>QC2040-0007-4242<" in body, "the rights on factory data"


def test_an_upload_may_be_larger_than_other_bodies_and_cannot_be_downloaded():
    upload = os.urandom(3_000_000)  # any other URL may have 2 MB
    assert request("PUT", "/PSIA/System/deviceInfo", upload)[0] == 413
    assert OK in request("PUT", "/PSIA/System/configurationData", upload)[1]
    assert (EXCHANGE / "psia_config.dat").read_bytes() == upload
    assert (CAMERA / "secret").stat().st_mode & 0o777 == 0o600
    for directory in ("/Web/updownload/", "/web/UPDOWNLOAD/", "/Web/%75pdownload/"):
        assert request("GET", directory + "psia_config.dat")[0] in (403, 404), directory


def test_an_export_that_takes_4_s_and_twelve_changes_at_once_are_answered():
    status, export = request("GET", "/PSIA/System/configurationData")
    assert status == 200 and export.startswith(b"SQLite format 3")
    with concurrent.futures.ThreadPoolExecutor(12) as pool:
        assert all(OK in answer for answer in pool.map(switch_audio, ["true", "false"] * 6))


@pytest.mark.parametrize("url, most", [
    ("/PSIA/System/deviceInfo", 16), ("/PSIA/System/configurationData", 2)])
def test_one_address_may_have_so_many_bodies_on_their_way(web_server, url, most):
    if not isinstance(web_server, NginxAndSystemd):
        return  # lighttpd has no such limit
    header = f"PUT {url} HTTP/1.1\r\nHost: camera\r\nContent-Length: 9999\r\n\r\n12".encode()
    begun = [socket.create_connection(("127.0.0.1", 80)) for _ in range(most + 2)]
    for body in begun:
        body.sendall(header)
    eventually(lambda: len(select.select(begun, [], [], 0)[0]) == 2, "two refusals")
    assert all(b" 503 " in refused.recv(100) for refused in select.select(begun, [], [], 0)[0])
    for body in begun:
        body.close()


def test_a_killed_service_is_started_again():
    (service,) = processes(PROGRAM)
    assert os.stat(f"/proc/{service}").st_uid != 0
    os.kill(service, signal.SIGKILL)
    started_again(PROGRAM, [service], answers)
    assert OK in switch_audio("true") and len(processes(PROGRAM)) == 1


def test_no_password_is_logged(web_server):
    web_server.stop()
    log = pathlib.Path(web_server.log).read_text()
    assert "PUT /PSIA/System/Audio/channels/1" in log
    assert ADMIN.split()[1] not in log and " admin " not in log


def test_an_export_may_take_180_s_and_tls_can_be_switched_on(web_server):
    # The shipped limit is above that, and made 1 s it ends the export that takes 4 s.
    text = CONFIGURATION.read_text()
    limit = re.compile(r'("read-timeout" => |fastcgi_read_timeout )(\d+)')
    assert int(limit.search(text)[2]) > 184  # looking for a reply every 100 ms adds some seconds
    text = limit.sub(r"\g<1>1", text).replace("#tls ", "")
    CONFIGURATION.write_text(re.sub(r"/etc/\w+/(camera\.\w+)", rf"{CAMERA}/\1", text))
    run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=camera", "-keyout",
        CAMERA / "camera.key", "-out", CAMERA / "camera.crt")
    key, certificate = (CAMERA / "camera.key").read_text(), (CAMERA / "camera.crt").read_text()
    (CAMERA / "camera.pem").write_text(key + certificate)
    web_server.start()
    eventually(lambda: answers(tls=True), "the first answer over TLS")
    assert request("GET", "/PSIA/index")[0] in (301, 307)
    assert request("GET", "/PSIA/System/configurationData", tls=True)[0] == 504
    web_server.stop()
