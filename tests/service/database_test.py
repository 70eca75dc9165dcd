"""The database: lists are stored as one transaction, a file that is replaced is opened anew."""
import re
import shutil
import sqlite3

import pytest

from camera import DATABASE, DEFAULTS, DIRECTORY, UNAUTHORIZED, FaultPlan, libc, status

USERS = "/PSIA/Security/AAA/users"
FTP = "/PSIA/Custom/Event/notification/ftp"
DELETED = ["User[guest] is deleted", "status 1"]
COPY = DIRECTORY / "copy.db"


def repeated(text, count=1000):
    """The text for each number, which stands for its #."""
    return "".join(text.replace("#", str(number)) for number in range(count))


# Lists.

@pytest.mark.parametrize("method, uri, body", [
    ("POST", USERS, f"<User>{repeated('<userName>u#</userName><password>p</password>')}</User>"),
    ("POST", FTP, "<FTPNotificationList>"
     f"{repeated('<FTPNotification><id>F#</id></FTPNotification>')}</FTPNotificationList>"),
])
def test_a_thousand_items_are_flushed_to_the_medium_a_few_times(faulty_camera, method, uri, body):
    faulty_camera.plan.let_fail(FaultPlan.SYNC, skip=1000)  # counts down
    effects = faulty_camera.effects(method, uri, body)
    assert faulty_camera.plan.skip >= 980
    assert (len(effects), effects[-1]) == (1001, "status 1")


ADD_USERS = ("POST", USERS, """
    <User>
      <userName>a</userName><password>p</password>
      <userName>b</userName><password>p</password>
    </User>""")
CHANGE_USERS = ("PUT", USERS, """
    <UserList>
      <User><userName>guest</userName><password>p</password></User>
      <User><userName>viewer</userName><password>it's</password></User>
      <User><userName>operator</userName><password>p</password></User>
    </UserList>""")
ADD_SERVERS = ("POST", FTP, """
    <FTPNotificationList><FTPNotification><id>A</id></FTPNotification></FTPNotificationList>""")


CHANGE_TRIGGERS = ("PUT", "/PSIA/Custom/Event/triggers", """
    <EventTriggerList>
      <EventTrigger><id>Sensor-0</id><intervalBetweenEvents>7</intervalBetweenEvents></EventTrigger>
      <EventTrigger><id>Sensor-0</id><intervalBetweenEvents>8</intervalBetweenEvents></EventTrigger>
    </EventTriggerList>""")


def test_an_item_whose_statement_fails_is_left_out(camera):
    assert camera.effects(*CHANGE_USERS) == ["User[operator].Password = p", "User[guest].Password = p",
                                             status(3, USERS) + status(1, USERS)]


@pytest.mark.parametrize("method, uri, body, answer", [
    (*ADD_USERS, status(3, USERS) + status(1, USERS)),
    (*CHANGE_USERS, 3 * status(3, USERS) + status(1, USERS)),
    (*ADD_SERVERS, "status 1"),
])
def test_a_commit_that_fails_stores_nothing(faulty_camera, method, uri, body, answer):
    faulty_camera.plan.let_fail(FaultPlan.SYNC)
    assert faulty_camera.effects(method, uri, body) == [answer]
    assert faulty_camera.effects("DELETE", USERS + "/guest") == DELETED  # a transaction of its own


@pytest.mark.parametrize("method, uri, body, answer", [
    (*CHANGE_USERS, 3 * status(3, USERS) + status(1, USERS)),
    (*CHANGE_TRIGGERS, "status 1"),  # whose first statement reads
])
def test_a_list_waits_for_a_lock_only_once(faulty_camera, method, uri, body, answer):
    faulty_camera.plan.speed = 100
    faulty_camera.plan.let_fail(FaultPlan.LOCK, skip=2, fail=1000)  # the access check gets its two locks
    assert faulty_camera.effects(method, uri, body) == [answer]
    assert faulty_camera.plan.slept == 1050


def test_nothing_is_stored_after_sqlite_gave_the_transaction_up(faulty_camera):
    faulty_camera.plan.let_fail(FaultPlan.WRITE)  # of the first item
    assert faulty_camera.effects(*CHANGE_USERS) == [3 * status(3, USERS) + status(1, USERS)]


# Files.

def test_a_file_that_is_moved_to_its_place_counts_at_once(camera):
    descriptors = camera.open_descriptors()
    shutil.copy(DATABASE, COPY)
    camera.execute("update User set Password='new'", COPY)
    COPY.rename(DATABASE)
    assert camera.call("GET", "/PSIA/x") == UNAUTHORIZED
    assert camera.effects("DELETE", USERS + "/guest", user="admin:new") == DELETED
    assert camera.open_descriptors() == descriptors


def test_a_lock_on_a_file_that_was_moved_there_is_waited_for(faulty_camera):
    shutil.copy(DATABASE, COPY)
    COPY.rename(DATABASE)
    faulty_camera.plan.let_fail(FaultPlan.LOCK)
    assert faulty_camera.call("GET", "/PSIA/x") == status(4, "/PSIA/x")


def test_a_file_that_may_not_be_opened_lets_nobody_in(unstarted_camera):
    camera = unstarted_camera
    # PR_CAPBSET_DROP: without CAP_DAC_OVERRIDE and CAP_DAC_READ_SEARCH the modes of files hold for root, too.
    camera.before_start = lambda: [libc.prctl(24, capability) for capability in (1, 2)]
    camera.start_service()
    assert camera.call("GET", "/PSIA/x") == status(4, "/PSIA/x")
    shutil.copy(DATABASE, COPY)
    COPY.chmod(0)
    COPY.rename(DATABASE)
    assert camera.call("GET", "/PSIA/x") == UNAUTHORIZED
    DATABASE.chmod(0o600)
    assert camera.effects("DELETE", USERS + "/guest") == DELETED


def test_a_link_that_is_pointed_to_another_file_counts_at_once(unstarted_camera):
    camera = unstarted_camera
    files = [DIRECTORY / name for name in ("first.db", "second.db")]
    for file in files:
        shutil.copy(DATABASE, file)
        camera.execute(f"update User set Password='{file.stem}'", file)
    links = [DIRECTORY / name for name in ("first", "second")]
    for link, file in zip(links, files):
        link.symlink_to(file)
    links[0].rename(DATABASE)
    camera.start_service()
    assert camera.call("GET", "/PSIA/x", user="admin:first") == status(4, "/PSIA/x")
    links[1].rename(DATABASE)
    assert camera.call("GET", "/PSIA/x", user="admin:first") == UNAUTHORIZED
    assert camera.effects("DELETE", USERS + "/guest", user="admin:second") == DELETED


def test_a_file_with_the_same_change_counter_that_is_copied_over_it_counts_at_once(camera):
    shutil.copy(DATABASE, COPY)
    for file, password in ((DATABASE, "old"), (COPY, "new")):
        camera.execute(f"update User set Password='{password}'", file)
    assert camera.call("GET", "/PSIA/x", user="admin:old") == status(4, "/PSIA/x")
    DATABASE.write_bytes(COPY.read_bytes())
    assert camera.call("GET", "/PSIA/x", user="admin:old") == UNAUTHORIZED
    assert camera.effects("DELETE", USERS + "/guest", user="admin:new") == DELETED


@pytest.mark.parametrize("size", [0, 6000])
def test_a_file_that_is_copied_over_it_counts_when_it_is_whole(camera, tmp_path, size):
    # The same tables, elsewhere in the file, where nothing tells SQLite to look for them again.
    with sqlite3.connect(DATABASE) as original, sqlite3.connect(tmp_path / "copy") as copy:
        copy.executescript("\n".join(original.iterdump()))
    content = (tmp_path / "copy").read_bytes()
    DATABASE.write_bytes(content[:size])
    assert camera.call("GET", "/PSIA/x") == UNAUTHORIZED
    DATABASE.write_bytes(content)
    assert camera.effects("DELETE", USERS + "/guest") == DELETED


def test_a_database_counts_when_it_replaces_a_file_that_is_none(unstarted_camera):
    content = DATABASE.read_bytes()
    DATABASE.write_bytes(b"X" + content[1:])
    unstarted_camera.start_service()
    assert unstarted_camera.call("GET", "/PSIA/x") == UNAUTHORIZED
    DATABASE.write_bytes(content)
    assert unstarted_camera.effects("DELETE", USERS + "/guest") == DELETED


def test_a_file_that_is_gone_is_not_created(camera):
    content = DATABASE.read_bytes()
    DATABASE.unlink()
    assert camera.call("GET", "/PSIA/x") == status(4, "/PSIA/x")  # from the file that is still open
    assert not DATABASE.exists()
    DATABASE.write_bytes(content)
    assert camera.effects("DELETE", USERS + "/guest") == DELETED


def test_columns_that_a_daemon_adds_or_moves_count_at_once(camera):
    assert camera.shown("/PSIA/Streaming/status", "ipAddress") != []
    for columns in ("0, 'Master-0', '10.0.0.1', 5, 6", "0, 'Master-0'", "0, 'Master-0', '10.0.0.2', 5"):
        camera.execute(f"drop table ClientList; create table ClientList as select {columns}")
        assert camera.shown("/PSIA/Streaming/status", "ipAddress") == re.findall(r"10\.0\.0\.\d", columns) or [""]


def test_without_the_column_of_the_identifier_one_is_generated(camera):
    camera.execute("alter table System drop column uuid")
    shown = re.search("<deviceID>(.*)</deviceID>", camera.call("GET", "/PSIA/System/deviceInfo"))[1]
    assert camera.rows("select uuid from System", DEFAULTS) == [(shown,)]
    # Until it is started again the service has no database, not even one that is put in its place.
    shutil.copy(DEFAULTS, COPY)
    COPY.rename(DATABASE)
    assert camera.call("GET", "/PSIA/x") == UNAUTHORIZED
