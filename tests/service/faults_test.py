"""One operation of a request fails: an allocation, a lock, a read, a write or a flush. Each in its turn."""
import itertools
import os
import re

import pytest

from answers import OK
from camera import DATABASE
from faults import ATTEMPTS_AT_A_LOCK, FAST, FaultPlan
from simulator.settings import FACTORY_ROWS

USERS = "/PSIA/Security/AAA/users"
# Kinds of operations, and how many of them fail one after the other.
MEMORY = pytest.param(FaultPlan.MEMORY, 1, id="memory", marks=pytest.mark.memory)
LOCK = pytest.param(FaultPlan.LOCK, ATTEMPTS_AT_A_LOCK, id="lock")
WRITE = pytest.param(FaultPlan.WRITE, 1, id="write")
FLUSH = pytest.param(FaultPlan.SYNC, 1, id="flush")
READ = pytest.param(FaultPlan.READ, 1, id="read")


def each_failing(camera, kind, failures):
    """Makes the first operation of the kind fail, then the second and so on, until a request has no more of
    them. Gives their numbers; a request is to be sent for each."""
    for number in itertools.count():
        os.utime(DATABASE)  # so that its pages are read again
        camera.plan.let_fail(kind, skip=number, fail=failures)
        yield number
        camera.plan.kind = 0
        if camera.plan.fail == failures:  # it counts down: none has failed
            assert number > 0, "There was no operation of this kind."
            return
        camera.call("GET", USERS)  # compiles statements again that the fault has ended


def without_answer(effects):
    """Without the answer, however it begins, and without what is reported on standard error."""
    return [line for line in effects if not re.match("status|Status|Content-Length|reported", line)]


def restore_rows(camera):
    tables = re.findall(r"insert into (\w+)", FACTORY_ROWS)
    camera.execute(f"begin; {''.join(f'delete from {table};' for table in tables)} {FACTORY_ROWS} commit")


@pytest.mark.parametrize("kind, failures", [MEMORY, LOCK, READ])
def test_a_read_that_fails_at_any_operation_changes_nothing(faulty_camera, kind, failures):
    faulty_camera.plan.speed = FAST
    for number in each_failing(faulty_camera, kind, failures):
        # It also reads the identifier of the device: taken for missing, a new one would be stored.
        effects = faulty_camera.effects("GET", "/PSIA/System/deviceInfo")
        assert without_answer(effects) == [], f"operation {number}"
        assert effects or kind == FaultPlan.MEMORY, f"no answer, operation {number}"  # which needs memory


@pytest.mark.parametrize("kind, failures", [MEMORY, LOCK, WRITE, FLUSH, READ])
# "always OK": whatever could not be stored, the answer is OK. The others answer OK only when all is done.
@pytest.mark.parametrize("uri, always_ok, body", [
    (USERS, False, "<UserList><User><userName>guest</userName><password>sent</password></User></UserList>"),
    ("/PSIA/System/Network/interfaces/eth0/ipAddress", False,
     "<IPAddress><addressingType>static</addressingType><ipAddress>10.0.0.7</ipAddress></IPAddress>"),
    ("/PSIA/Streaming/channels/1", False,
     "<StreamingChannel><Video><constantBitRate>77</constantBitRate></Video></StreamingChannel>"),
    ("/PSIA/Custom/Event/notification/mailing/Mail-1", True,
     "<MailingNotification><id>Mail-1</id><hostName>sent.example</hostName></MailingNotification>"),
], ids=["users", "address", "channel", "mail server"])
def test_a_change_that_fails_at_any_operation_leaves_a_beginning_of_its_effects(
        faulty_camera, uri, always_ok, body, kind, failures):
    faulty_camera.plan.speed = FAST
    whole = faulty_camera.effects("PUT", uri, body)
    assert whole[-1] == OK
    restore_rows(faulty_camera)
    for number in each_failing(faulty_camera, kind, failures):
        effects = faulty_camera.effects("PUT", uri, body)
        done = without_answer(effects)
        assert done == whole[:len(done)], f"operation {number}"
        assert effects != done or kind == FaultPlan.MEMORY, f"no answer, operation {number}"
        if effects[-1:] == [OK] and not always_ok:
            assert effects == whole, f"OK for a part, operation {number}"
        if done:
            restore_rows(faulty_camera)
    assert effects == whole  # of the last request, of which nothing failed
    assert faulty_camera.rows("pragma integrity_check") == [("ok",)]


@pytest.mark.parametrize("kind, failures", [MEMORY, READ])
def test_a_list_is_never_shown_in_part(faulty_camera, kind, failures):
    users = 500  # which fill several pages of the database
    faulty_camera.execute("".join(
        f"insert into User values ('user-{number}', 'secret', 2);" for number in range(users)))
    whole = faulty_camera.call("GET", USERS)
    assert whole.count("<User ") > users
    for number in each_failing(faulty_camera, kind, failures):
        shown = faulty_camera.call("GET", USERS)
        assert shown == whole or "<User " not in shown, f"operation {number}"
