#!/usr/bin/env python3
"""psia.init under one shell: what happens when it is started too early, twice, over a stale PID file, or in vain.

Usage, inside the camera: init_test.py BUILD-DIRECTORY busybox|dash
"""

import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time

sys.dont_write_bytecode = True
from machine import CAMERA, USER, add_user, empty, run, wait_for

DEPLOY = pathlib.Path(__file__).parents[2] / "deploy"
DATABASE = CAMERA / "orvid/morvid.db"
PIDFILE = pathlib.Path("/run/psia.pid")
SCRIPT = CAMERA / "psia.init"
SOCKET = pathlib.Path("/run/psia/psia.socket")
SERVICE = CAMERA / "bin-psia/psia.fcgi"


def script(verb):
    """Status, and what it says."""
    done = subprocess.run([SCRIPT, verb], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=60)
    return done.returncode, done.stdout


def pids(of):
    """The processes that have this in their command line."""
    found = []
    for entry in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        try:
            words = entry.read_bytes().decode().split("\0")
        except OSError:
            continue
        if str(of) in words:
            found.append(int(entry.parent.name))
    return found


def nothing_left():
    return not pids(SERVICE) and not pids(SCRIPT) and not pids("logger") and not PIDFILE.exists()


def maintain(script_name):
    text = (DEPLOY / "debian" / script_name).read_text()
    text = text.replace("/usr/libexec/psia", str(SERVICE.parent)).replace("/usr/share/psia/psia.init", str(SCRIPT))
    run("sh", "-c", text, script_name, "remove")


class Syslog:
    """Reads all the time: the socket holds ten messages, and then logger waits."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind("/dev/log")
        self.lines = []
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        while True:
            self.lines.append(self.socket.recv(65536).decode())

    def has(self, words):
        return any("psia: " in line and words in line for line in self.lines)


def prepare(build, shell):
    add_user()
    empty("/run", "/var/log")
    SERVICE.parent.mkdir()
    for program in ("psia.fcgi", "psia-rights"):
        shutil.copy(pathlib.Path(build, program), SERVICE.parent)
    text = (DEPLOY / "psia.init").read_text()
    text = text.replace("/usr/libexec/psia", str(SERVICE.parent))
    if shell == "busybox":
        # With BusyBox's commands in place of the machine's.
        (CAMERA / "busybox").mkdir()
        run("busybox", "--install", "-s", CAMERA / "busybox")
        text = text.replace("PATH=/usr/sbin", f"PATH={CAMERA}/busybox:/usr/sbin")
        text = text.replace("#!/bin/sh", f"#!{CAMERA}/busybox/sh")
    else:
        text = text.replace("#!/bin/sh", "#!/bin/dash")
    SCRIPT.write_text(text)
    SCRIPT.chmod(0o755)


def check_early_start(log):
    away = DATABASE.with_suffix(".away")
    DATABASE.rename(away)
    status, said = script("start")
    assert status == 0 and "waits for" in said and "waits for" in script("status")[1], said
    wait_for("the log says so", lambda: log.has("waiting for"))
    for content, reason in (("", "it is empty"), ("A text, and longer than a header.", "it is no SQLite file")):
        DATABASE.write_text(content)
        wait_for("the log says what is wrong with the file", lambda: log.has(reason))
        assert not pids(SERVICE) and "waits for" in script("status")[1]
    away.rename(DATABASE)
    wait_for("the service starts", lambda: pids(SERVICE))
    assert script("stop")[0] == 0
    wait_for("nothing is left", nothing_left)


def check_one_supervisor(log):
    assert script("start") == (0, "psia started\n")
    (service,) = pids(SERVICE)
    assert SOCKET.stat().st_mode & 0o777 == 0o600 and SOCKET.owner() == "www-data"
    assert script("run")[0] == 1 and "already" in script("start")[1] and pids(SERVICE) == [service]
    os.kill(service, signal.SIGKILL)
    wait_for("the service is started again", lambda: pids(SERVICE) not in ([], [service]))
    wait_for("the log says so", lambda: log.has("ended with status 137"))
    # A supervisor that was killed leaves a service, which the next one ends, and a PID file.
    (service,) = pids(SERVICE)
    os.kill(int(PIDFILE.read_text().split()[0]), signal.SIGKILL)
    wait_for("status sees it", lambda: script("status")[0] == 3)
    assert script("start") == (0, "psia started\n")
    assert len(pids(SERVICE)) == 1 and service not in pids(SERVICE)
    assert script("stop")[0] == 0
    wait_for("nothing is left", nothing_left)


def check_stale_pid_file():
    stranger = subprocess.Popen(["sleep", "600"])
    PIDFILE.write_text(f"{stranger.pid} 1\n")
    assert "does not run" in script("stop")[1] and stranger.poll() is None
    assert script("start")[0] == 0 and script("stop")[0] == 0 and stranger.poll() is None
    stranger.kill()
    stranger.wait()


def check_removal():
    """What dpkg runs before and after it removes the program."""
    assert script("start")[0] == 0
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(CAMERA / "lighttpd.socket"))
        listener.listen()
        started = subprocess.Popen([SERVICE], stdin=listener, user="www-data", group=USER)
    maintain("prerm")
    assert started.poll() is None and DATABASE.stat().st_gid == 0
    SERVICE.unlink()
    maintain("postrm")
    assert started.wait(15) == 0, "lighttpd's would have gone on"
    wait_for("nothing is left", lambda: nothing_left() and not SOCKET.parent.exists())


def check_failed_start(log):
    SERVICE.write_text("#!/bin/sh\necho a diagnostic >&2\nexit 3\n")
    SERVICE.chmod(0o755)
    status, said = script("start")
    assert status == 1 and "did not start" in said, said
    wait_for("nothing is left", nothing_left)
    wait_for("the log has what it said", lambda: log.has("a diagnostic"))


def main():
    prepare(*sys.argv[1:])
    log = Syslog()
    check_early_start(log)
    check_one_supervisor(log)
    check_stale_pid_file()
    check_removal()
    check_failed_start(log)


if __name__ == "__main__":
    main()
