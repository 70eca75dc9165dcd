"""The database: lists are stored as one transaction, a file that is replaced is opened anew."""
import contextlib
import shutil
import sqlite3

import pytest

from answers import DEVICE_ERROR, OK, answer, logged_in
from camera import DATABASE, DEFAULTS, DIRECTORY
from faults import FAST, FOREVER, LOCKS_OF_A_LOGIN, WAIT_FOR_A_LOCK, FaultPlan

USERS = "/PSIA/Security/AAA/users"
GUEST = USERS + "/guest"
FTP = "/PSIA/Custom/Event/notification/ftp"
TRIGGERS = "/PSIA/Custom/Event/triggers"
DELETED = ["User[guest] is deleted", OK]
COPY = DIRECTORY / "copy.db"


# Lists.

def test_a_thousand_users_are_flushed_to_the_medium_a_few_times(faulty_camera):
    users = "".join(f"<userName>user-{number}</userName><password>p</password>" for number in range(1000))
    faulty_camera.plan.let_fail(FaultPlan.SYNC, skip=20)  # the 21st flush would fail
    *added, received = faulty_camera.effects("POST", USERS, f"<User>{users}</User>")
    assert (len(added), received) == (1000, OK)
    assert 0 <= faulty_camera.plan.skip < 20  # some were counted


ADD_USERS = ("POST", USERS, "<User><userName>ann</userName><password>p</password>"
             "<userName>ben</userName><password>p</password></User>")
# A quote cannot be stored: the password of viewer fails in any case.
CHANGE_USERS = ("PUT", USERS, """
    <UserList>
      <User><userName>guest</userName><password>p</password></User>
      <User><userName>viewer</userName><password>it's</password></User>
      <User><userName>operator</userName><password>p</password></User>
    </UserList>""")
# An error for each user, and always an OK behind them.
ALL_THREE_FAILED = answer(USERS, DEVICE_ERROR, DEVICE_ERROR, DEVICE_ERROR, OK)
ADD_SERVERS = ("POST", FTP, "<FTPNotificationList><FTPNotification><id>FTP-2</id></FTPNotification>"
               "<FTPNotification><id>FTP-3</id></FTPNotification></FTPNotificationList>")
CHANGE_TRIGGERS = ("PUT", TRIGGERS, """
    <EventTriggerList>
      <EventTrigger><id>Sensor-0</id><intervalBetweenEvents>7</intervalBetweenEvents></EventTrigger>
      <EventTrigger><id>Sensor-0</id><intervalBetweenEvents>8</intervalBetweenEvents></EventTrigger>
    </EventTriggerList>""")


@pytest.mark.parametrize("request_of_a_list, received", [
    pytest.param(ADD_USERS, answer(USERS, DEVICE_ERROR, OK), id="new users: an error for all, then OK"),
    pytest.param(CHANGE_USERS, ALL_THREE_FAILED, id="changed users: an error for each, then OK"),
    pytest.param(ADD_SERVERS, OK, id="events are always answered with OK"),
])
def test_a_commit_that_fails_stores_nothing(faulty_camera, request_of_a_list, received):
    faulty_camera.plan.let_fail(FaultPlan.SYNC)
    assert faulty_camera.effects(*request_of_a_list) == [received]
    assert faulty_camera.effects("DELETE", GUEST) == DELETED  # no transaction is left open


@pytest.mark.parametrize("request_of_a_list, received", [
    pytest.param(CHANGE_USERS, ALL_THREE_FAILED, id="begins with a write"),
    pytest.param(CHANGE_TRIGGERS, OK, id="begins with a read; events are always answered with OK"),
])
def test_a_list_waits_for_a_lock_only_once(faulty_camera, request_of_a_list, received):
    faulty_camera.plan.speed = FAST
    faulty_camera.plan.let_fail(FaultPlan.LOCK, skip=LOCKS_OF_A_LOGIN, fail=FOREVER)
    assert faulty_camera.effects(*request_of_a_list) == [received]
    assert faulty_camera.plan.slept == WAIT_FOR_A_LOCK


def test_nothing_is_stored_when_sqlite_gave_the_transaction_up_at_the_first_item(faulty_camera):
    faulty_camera.plan.let_fail(FaultPlan.WRITE)  # of the first item; SQLite takes it for a full medium
    assert faulty_camera.effects(*CHANGE_USERS) == [ALL_THREE_FAILED]


# Files that replace the database.

def copy_with_password(file, password):
    """A copy of the database in which everybody has this password."""
    shutil.copy(DATABASE, file)
    with contextlib.closing(sqlite3.connect(file)) as copy, copy:
        copy.execute("update User set Password=?", (password,))
    return file


def test_a_database_that_replaces_the_open_one_is_used_at_once(camera):
    descriptors = camera.open_descriptors()
    copy_with_password(COPY, "new").rename(DATABASE)
    assert not logged_in(camera)
    assert camera.effects("DELETE", GUEST, user="admin:new") == DELETED
    assert camera.open_descriptors() == descriptors


def test_a_lock_on_a_database_that_replaced_the_open_one_is_waited_for(faulty_camera):
    shutil.copy(DATABASE, COPY)
    COPY.rename(DATABASE)
    faulty_camera.plan.let_fail(FaultPlan.LOCK)
    assert logged_in(faulty_camera)
    assert faulty_camera.plan.slept > 0


def test_nobody_is_let_in_while_the_database_that_replaced_the_open_one_cannot_be_opened(camera):
    content = DATABASE.read_bytes()
    link = DIRECTORY / "link"
    link.symlink_to(DIRECTORY)  # a folder is no database
    link.rename(DATABASE)
    assert not logged_in(camera)
    DATABASE.unlink()
    DATABASE.write_bytes(content)
    assert camera.effects("DELETE", GUEST) == DELETED


def test_a_database_copied_over_the_open_one_is_read_at_once_though_its_change_counter_is_the_same(camera):
    # SQLite counts the changes of a file and reads it again when their number is another one.
    copy_with_password(COPY, "new")
    camera.execute("update User set Password='old'")
    assert logged_in(camera, "admin:old")
    DATABASE.write_bytes(COPY.read_bytes())
    assert not logged_in(camera, "admin:old")
    assert camera.effects("DELETE", GUEST, user="admin:new") == DELETED


@pytest.fixture
def rearranged(tmp_path):
    """The content of a file with the same tables in other places, and nothing that makes SQLite notice."""
    with contextlib.closing(sqlite3.connect(DATABASE)) as original, \
            contextlib.closing(sqlite3.connect(tmp_path / "copy")) as copy:
        copy.executescript("\n".join(original.iterdump()))
    return (tmp_path / "copy").read_bytes()


@pytest.mark.parametrize("part", [pytest.param(0, id="nothing"), pytest.param(0.5, id="half of it")])
def test_a_database_copied_over_the_open_one_is_used_when_it_is_whole(camera, rearranged, part):
    DATABASE.write_bytes(rearranged[:int(part * len(rearranged))])
    assert not logged_in(camera)
    DATABASE.write_bytes(rearranged)
    assert camera.effects("DELETE", GUEST) == DELETED


def test_a_database_that_is_gone_is_not_created(camera):
    content = DATABASE.read_bytes()
    DATABASE.unlink()
    assert logged_in(camera)  # from the file that is still open
    assert not DATABASE.exists()
    DATABASE.write_bytes(content)
    assert camera.effects("DELETE", GUEST) == DELETED


def test_without_the_column_of_the_identifier_one_is_generated(camera):
    camera.execute("alter table System drop column uuid")
    [identifier] = camera.shown("/PSIA/System/deviceInfo", "deviceID")
    assert camera.rows("select uuid from System", DEFAULTS) == [(identifier,)]
