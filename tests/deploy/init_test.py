"""psia.init under the shell PSIA_SHELL: started too early, twice, over a stale PID file, or in vain."""

import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess

import pytest

from machine import CAMERA, USER, add_user, empty, processes, run, started_again
from simulator.testing import eventually

DEPLOY = pathlib.Path(__file__).parents[2] / "deploy"
DATABASE = CAMERA / "orvid/morvid.db"
PIDFILE = pathlib.Path("/run/psia.pid")
SCRIPT = CAMERA / "psia.init"
SOCKET = pathlib.Path("/run/psia/psia.socket")
SERVICE = CAMERA / "bin-psia/psia.fcgi"
LOG = pathlib.Path("/var/log/messages")


def script(verb):
    """Status, and what it says."""
    done = subprocess.run([SCRIPT, verb], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return done.returncode, done.stdout


def nothing_left():
    return not processes(SERVICE, SCRIPT, "logger") and not PIDFILE.exists()


def stop():
    assert script("stop")[0] == 0
    eventually(nothing_left, "the end of all processes")


def maintain(script_name):
    text = (DEPLOY / "debian" / script_name).read_text()
    text = text.replace("/usr/libexec/psia", str(SERVICE.parent))
    text = text.replace("/usr/share/psia/psia.init", str(SCRIPT))
    run("sh", "-c", text, script_name, "remove")


def wait_for_log(words):
    eventually(lambda: re.search(f"psia: .*{words}", LOG.read_text()), f"'{words}' in the log")


@pytest.fixture(scope="module", autouse=True)
def machine():
    add_user()
    empty("/run", "/var/log")
    SERVICE.parent.mkdir()
    for program in ("psia.fcgi", "psia-rights"):
        shutil.copy(pathlib.Path(os.environ["PSIA_BUILD"], program), SERVICE.parent)
    text = (DEPLOY / "psia.init").read_text().replace("/usr/libexec/psia", str(SERVICE.parent))
    if os.environ["PSIA_SHELL"] == "busybox":
        # With BusyBox's commands in place of the machine's.
        (CAMERA / "busybox").mkdir()
        run("busybox", "--install", "-s", CAMERA / "busybox")
        text = text.replace("PATH=/usr/sbin", f"PATH={CAMERA}/busybox:/usr/sbin")
        text = text.replace("#!/bin/sh", f"#!{CAMERA}/busybox/sh")
    else:
        text = text.replace("#!/bin/sh", "#!/bin/dash")
    SCRIPT.write_text(text)
    SCRIPT.chmod(0o755)
    subprocess.Popen(["busybox", "syslogd", "-n", "-O", LOG])
    eventually(LOG.exists, "the system's log")


def test_a_start_before_the_settings_are_there_waits_for_them():
    away = DATABASE.with_suffix(".away")
    DATABASE.rename(away)
    status, said = script("start")
    assert status == 0 and "waits for" in said and "waits for" in script("status")[1], said
    wait_for_log("waiting for")
    for content, reason in ("", "it is empty"), ("Longer than a header.", "it is no SQLite file"):
        DATABASE.write_text(content)
        wait_for_log(reason)
        assert not processes(SERVICE) and "waits for" in script("status")[1]
    away.rename(DATABASE)
    eventually(lambda: processes(SERVICE), "the service")
    stop()


def test_one_supervisor_restarts_one_service():
    assert script("start") == (0, "psia started\n")
    (service,) = processes(SERVICE)
    assert SOCKET.stat().st_mode & 0o777 == 0o600 and SOCKET.owner() == "www-data"
    assert script("run")[0] == 1 and "already" in script("start")[1]
    assert processes(SERVICE) == [service]
    os.kill(service, signal.SIGKILL)
    started_again(SERVICE, [service])
    wait_for_log(f"ended with status {128 + signal.SIGKILL}")  # as a shell counts
    # A supervisor that was killed leaves a service, which the next one ends, and a PID file.
    (service,) = processes(SERVICE)
    os.kill(int(PIDFILE.read_text().split()[0]), signal.SIGKILL)
    eventually(lambda: script("status")[0] == 3, "status sees it")  # 3: it does not run
    assert script("start") == (0, "psia started\n")
    assert len(processes(SERVICE)) == 1 and service not in processes(SERVICE)
    stop()


def test_a_stale_pid_file_is_no_supervisor():
    stranger = subprocess.Popen(["sleep", "600"])
    PIDFILE.write_text(f"{stranger.pid} 1\n")
    assert "does not run" in script("stop")[1] and stranger.poll() is None
    assert script("start")[0] == 0 and script("stop")[0] == 0 and stranger.poll() is None
    stranger.kill()
    stranger.wait()


def test_a_removal_ends_every_service():
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
    eventually(lambda: nothing_left() and not SOCKET.parent.exists(), "the end of all processes")


def test_a_failed_start_is_reported_and_logged():
    SERVICE.write_text("#!/bin/sh\necho a diagnostic >&2\nexit 3\n")
    SERVICE.chmod(0o755)
    status, said = script("start")
    assert status == 1 and "did not start" in said, said
    eventually(nothing_left, "the end of all processes")
    wait_for_log("a diagnostic")
