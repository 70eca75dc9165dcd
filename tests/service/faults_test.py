"""One operation of a request fails: an allocation, a lock, a write or a flush. Then the process is killed."""
import itertools
import os
import pathlib
import re
import signal
import time

import pytest

from camera import DATABASE, FaultPlan

USERS = "/PSIA/Security/AAA/users"
FACTORY_ROWS = (pathlib.Path(__file__).parents[2] / "simulator/factory.sql").read_text()


def restore_rows(camera):
    tables = re.findall(r"insert into (\w+)", FACTORY_ROWS)
    camera.execute(f"begin; {''.join(f'delete from {table};' for table in tables)} {FACTORY_ROWS} commit")


@pytest.mark.parametrize("kind, fail", [
    pytest.param(FaultPlan.MEMORY, 1, id="memory", marks=pytest.mark.memory),
    pytest.param(FaultPlan.LOCK, 7, id="lock"),  # at the seventh attempt a statement gives up
    pytest.param(FaultPlan.WRITE, 1, id="write"),
    pytest.param(FaultPlan.SYNC, 1, id="flush"),
    pytest.param(FaultPlan.READ, 1, id="read"),
])
@pytest.mark.parametrize("method, uri, body", [
    ("GET", "/PSIA/System/deviceInfo", ""),
    ("PUT", USERS, "<UserList><User><userName>guest</userName><password>sent</password></User></UserList>"),
    ("PUT", "/PSIA/System/Network/interfaces/eth0/ipAddress", """
        <IPAddress>
          <ipVersion>v4</ipVersion>
          <addressingType>static</addressingType>
          <ipAddress>10.0.0.7</ipAddress>
        </IPAddress>"""),
    ("PUT", "/PSIA/Streaming/channels/1", """
        <StreamingChannel><Video><constantBitRate>77</constantBitRate></Video></StreamingChannel>"""),
    ("PUT", "/PSIA/Custom/Event/notification/mailing/Mail-1", """
        <MailingNotification><id>Mail-1</id><hostName>sent.example</hostName></MailingNotification>"""),
])
def test_nothing_happens_but_what_was_asked_for(faulty_camera, method, uri, body, kind, fail):
    camera = faulty_camera
    camera.plan.speed = 100
    good = done = camera.effects(method, uri, body)
    for number in itertools.count():
        if done:
            restore_rows(camera)
        os.utime(DATABASE)  # so that its pages are read again
        camera.plan.let_fail(kind, skip=number, fail=fail)
        effects = camera.effects(method, uri, body)
        camera.plan.kind = 0
        if camera.plan.fail == fail:
            break  # the request has no more operations of this kind
        done = [line for line in effects if not re.match("status|Status|Content-Length|reported", line)]
        assert done == good[:len(done)], f"operation {number}"
        if effects[-1:] == ["status 1"] and "Event" not in uri:  # whose changes are always answered with 1
            assert done == good[:-1], f"operation {number}"
        assert kind == FaultPlan.MEMORY or len(effects) > len(done), f"no answer, operation {number}"
    assert effects == good
    assert camera.rows("pragma integrity_check") == [("ok",)]


@pytest.mark.parametrize("kind", [
    pytest.param(FaultPlan.MEMORY, id="memory", marks=pytest.mark.memory),
    pytest.param(FaultPlan.READ, id="read"),
])
def test_a_list_is_never_shown_in_part(faulty_camera, kind):
    camera = faulty_camera
    camera.execute("".join(f"insert into User values ('user-{number}', 'secret', 2);" for number in range(500)))
    for number in itertools.count():
        whole = camera.call("GET", USERS)  # which compiles the statements that the last fault ended
        os.utime(DATABASE)  # so that its pages are read again
        camera.plan.let_fail(kind, skip=number)
        answer = camera.call("GET", USERS)
        camera.plan.kind = 0
        assert answer == whole or "<User " not in answer, f"operation {number}"
        if camera.plan.fail == 1:
            break
    assert number > 5 and whole.count("<User ") > 500
