"""psia-rights against whoever has taken the service over: it gives what the service needs and never touches a
file that was put in the place of another."""

import multiprocessing
import os
import pathlib
import shutil
import signal
import subprocess
import time

import pytest

from machine import USER, add_user, empty, run
from simulator.device import EXCHANGE, FACTORY_DATA

ORVID = pathlib.Path("/usr/local/orvid")
SECRET = pathlib.Path("/usr/local/secret")
SECRET_DIRECTORY = pathlib.Path("/usr/local/private")
LINK_PROTECTION = pathlib.Path("/proc/sys/fs/protected_hardlinks")


def rights(*options):
    return subprocess.run([os.environ["PSIA_RIGHTS"], *options, "psia"], capture_output=True, text=True)


def state(path):
    found = path.lstat()
    return oct(found.st_mode), found.st_uid, found.st_gid


@pytest.fixture(scope="module", autouse=True)
def machine():
    add_user()
    empty("/run")  # psia-rights makes /run/psia, which a service of this machine may have
    # A kernel that leaves hard links alone, and may be told otherwise; the machine's own setting stays.
    setting = pathlib.Path("/usr/local/protected_hardlinks")
    setting.write_text("0\n")
    run("mount", "--bind", setting, LINK_PROTECTION)
    SECRET.write_text("root's")
    SECRET.chmod(0o600)
    SECRET_DIRECTORY.mkdir(mode=0o700)
    # A settings folder by what is in it, so that only links lead there.
    shutil.copy(ORVID / "conf/default.db", SECRET_DIRECTORY)


def test_the_service_is_given_what_it_needs():
    (EXCHANGE / "settings.db").touch(0o644)
    assert rights().returncode == 0
    group_only = ("0o100660", 0, USER)
    for path in (ORVID / "morvid.db", ORVID / "conf/default.db", EXCHANGE / "settings.db", FACTORY_DATA):
        assert state(path) == group_only, path
    assert state(ORVID) == ("0o42775", 0, USER) and state(EXCHANGE) == ("0o42770", 0, USER)
    assert LINK_PROTECTION.read_text() == "1\n"
    # Root's start script binds, chowns and chmods the socket in there.
    assert state(pathlib.Path("/run/psia")) == ("0o40711", 0, 0)
    assert rights("--socket").returncode == 0 and state(pathlib.Path("/run/psia")) == ("0o40771", 0, USER)


def test_private_files_that_the_user_moved_are_left():
    """The service's user moves root's private files to places where files are given away."""
    key, conf, private = ORVID / "key", ORVID / "conf", ORVID / "private"
    key.touch(0o600)
    private.mkdir(0o700)
    (EXCHANGE / "export").touch(0o640)
    before = state(key), state(private)
    moves = (key, EXCHANGE / "key"), (conf, ORVID / "away"), (private, conf)
    for source, target in moves:
        subprocess.run(["mv", "-T", source, target], check=True, user=USER, group=USER, extra_groups=[])
    said = rights().stderr
    assert (state(EXCHANGE / "key"), state(conf)) == before
    assert "key is left" in said and "conf is left" in said and "export" not in said, said
    for source, target in reversed(moves):
        target.rename(source)
    assert rights().returncode == 0


def test_files_that_may_have_another_name_are_left():
    """Each of these once gave the secret to the service's group; symbolic links are swapped in below."""
    for path in (EXCHANGE / "a", ORVID / "morvid.db-journal"):
        path.hardlink_to(SECRET)
        rights()
        path.unlink()
    # Another file of the same directory, which cannot be told by its names.
    other = ORVID / "morvid.db-journal"
    other.write_text("root's, and no journal")
    other.chmod(0o600)
    assert rights().returncode == 1 and state(other)[0] == "0o100600"
    other.unlink()
    # What lost its other name cannot be told by counting, and a kernel without protection has had it linked.
    run("umount", LINK_PROTECTION)
    run("mount", "--bind", "/dev/null", LINK_PROTECTION)
    left_over = EXCHANGE / "left-over"
    left_over.touch(0o600)
    os.chown(left_over, USER + 1, USER + 1)
    assert "left-over is left as it is" in rights().stderr and state(left_over)[0] == "0o100600"
    left_over.unlink()
    check_secrets()


def check_secrets():
    assert state(SECRET) == ("0o100600", 0, 0) and state(SECRET_DIRECTORY) == ("0o40700", 0, 0)


def start_as(user, action, *arguments):
    """A process of that user's that runs the function."""
    def become_user_and_act():
        os.setgroups([])
        os.setresgid(USER, USER, USER)
        os.setresuid(user, user, user)
        action(*arguments)
    process = multiprocessing.Process(target=become_user_and_act, daemon=True)
    process.start()
    return process


def test_processes_of_the_user_are_killed_and_no_others():
    service = start_as(USER, time.sleep, 600)
    others = start_as(USER + 1, time.sleep, 600), start_as(0, time.sleep, 600)
    assert rights("--kill", "root").returncode == 1
    assert rights("--kill", "psia").returncode == 0
    service.join(10)
    assert service.exitcode == -signal.SIGKILL
    for other in others:
        assert other.is_alive()
        other.kill()


def swap(path, target):
    """Puts in turn a link to the target and a file or folder of the user's own in the place of the path."""
    own, link = path.with_name(path.name + ".own"), path.with_name(path.name + ".link")
    link.symlink_to(target)
    own.mkdir() if target == SECRET_DIRECTORY else own.touch()
    if path.exists():
        path.rename(path.with_name(path.name + ".away"))
    while True:
        for thing in (own, link):
            os.rename(thing, path)
            os.rename(path, thing)


def test_a_file_swapped_meanwhile_is_left():
    attackers = [start_as(USER, swap, EXCHANGE / "a", SECRET),
                 start_as(USER, swap, ORVID / "morvid.db-journal", SECRET),
                 start_as(USER, swap, ORVID / "conf", SECRET_DIRECTORY)]
    end = time.monotonic() + 4
    while time.monotonic() < end:
        rights()
        check_secrets()
    for attacker in attackers:
        assert attacker.is_alive(), "the attack went on all the time"
        attacker.kill()
