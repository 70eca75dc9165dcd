"""A stop ends the service in each of its waits, and cuts no request that is arriving."""
import signal
import sqlite3
import time

import pytest

from camera import DATABASE, REPLIES, REQUESTS, FaultPlan, reply, status

INFO = "/PSIA/System/deviceInfo"
REBOOT = "/PSIA/System/reboot"
CHANNEL = "/PSIA/Streaming/channels/1"
USERS = "/PSIA/Security/AAA/users"


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGUSR1])
def test_the_request_at_hand_is_finished(camera, number):
    busy = camera.begin("PUT", REBOOT)
    message = REQUESTS.next()
    camera.process.send_signal(number)
    camera.process.send_signal(number)
    assert REPLIES.send(reply(message, 2))
    assert busy.receive()[0] == status(3, REBOOT)
    assert camera.wait_for_exit() == 0


@pytest.mark.parametrize("connections", [0, 1, 2])
def test_connections_that_send_nothing_do_not_delay_it(camera, connections):
    silent = [camera.begin("GET", "/PSIA/x", first=0) for _ in range(connections)]
    camera.wait_until_blocked_in("poll" if silent else "accept")
    assert camera.stop_service() == 0


def test_parameters_that_arrive_meanwhile_are_judged_as_a_whole(camera):
    arriving = camera.begin("GET", "/PSIA/x", first=63)  # method and URI, but no credentials
    camera.wait_until_blocked_in("read")
    camera.process.send_signal(signal.SIGTERM)
    time.sleep(0.3)
    arriving.send_rest()
    assert arriving.receive()[0] == status(4, "/PSIA/x")
    assert camera.wait_for_exit() == 0


def test_parameters_that_do_not_all_arrive_get_no_answer(faulty_camera):
    faulty_camera.plan.speed = 5
    unfinished = faulty_camera.begin("GET", "/PSIA/x", first=63)  # method and URI
    faulty_camera.wait_until_blocked_in("read")
    start = time.monotonic()
    assert faulty_camera.stop_service() == 0
    assert time.monotonic() - start >= 0.3  # 1.5 s at that speed
    assert unfinished.socket.recv(1) == b""


@pytest.mark.parametrize("first", [70, -1])  # the stop comes within the parameters, or within the body
def test_a_body_is_awaited_for_so_long_after_the_stop(faulty_camera, first):
    faulty_camera.plan.speed = 5
    unfinished = faulty_camera.begin("PUT", INFO, "<DeviceInfo/>", finished=False, first=first)
    time.sleep(0.4)  # longer than the patience after a stop, which counts from the stop
    start = time.monotonic()
    faulty_camera.process.send_signal(signal.SIGTERM)
    unfinished.send_bytes(unfinished.rest[:-1])
    assert unfinished.receive()[0] == status(3, INFO)
    assert 0.25 < time.monotonic() - start < 5
    assert faulty_camera.wait_for_exit() == 0


def test_a_body_that_is_arriving_is_not_cut(faulty_camera):
    faulty_camera.plan.speed = 3
    body = "<DeviceInfo><deviceName>arrived</deviceName></DeviceInfo>"
    arriving = faulty_camera.begin("PUT", INFO, body, finished=False, first=-5)
    faulty_camera.wait_until_blocked_in("read")
    for byte in arriving.rest:
        faulty_camera.process.send_signal(signal.SIGTERM)
        faulty_camera.process.send_signal(signal.SIGALRM)
        time.sleep(0.15)
        arriving.send_bytes(bytes([byte]))
    assert arriving.receive()[0] == status(1, INFO)
    assert faulty_camera.wait_for_exit() == 0
    assert faulty_camera.rows("select DDNSHostname from Network") == [("arrived",)]


def test_a_list_ends_between_two_messages(camera):
    videos = "".join(f"<Video><constantBitRate>{i + 1}</constantBitRate></Video>" for i in range(20))
    listed = camera.begin("PUT", CHANNEL, f"<StreamingChannel>{videos}</StreamingChannel>")
    assert REPLIES.send(reply(REQUESTS.next(), 0))
    second = REQUESTS.next()
    camera.process.send_signal(signal.SIGTERM)
    assert REPLIES.send(reply(second, 0))
    assert listed.receive()[0] == status(3, CHANNEL)
    assert camera.wait_for_exit() == 0
    assert camera.rows("select Bitrate from VideoEncoder where VideoEncoderID=0") == [(2,)]


def test_one_wait_for_a_lock_is_the_last(camera):
    users = 20 * "<User><userName>viewer</userName><password>sent</password></User>"
    body = f"<UserList>{users}</UserList>"
    listed = camera.begin("PUT", USERS, body, finished=False, first=-1)
    camera.wait_until_blocked_in("read")  # so the client has logged in before the lock
    daemon = sqlite3.connect(DATABASE, isolation_level=None)
    daemon.execute("begin exclusive")
    listed.send_rest()
    camera.wait_until_blocked_in("clock_nanosleep")
    start = time.monotonic()
    camera.process.send_signal(signal.SIGTERM)
    assert listed.receive()[0] == 20 * status(3, USERS) + status(1, USERS)
    assert 0.5 < time.monotonic() - start < 10
    assert camera.wait_for_exit() == 0
    daemon.close()


@pytest.mark.parametrize("full", [False, True])
def test_just_before_a_system_call_that_blocks_it_is_not_lost(faulty_camera, full):
    if full:
        REQUESTS.fill()
    faulty_camera.wait_until_blocked_in("accept")
    faulty_camera.plan.let_fail(FaultPlan.STOP)  # the next accept, or the next msgsnd that blocks
    answer = faulty_camera.call("PUT", REBOOT if full else "/PSIA/x")
    assert answer == (status(2, REBOOT) if full else status(4, "/PSIA/x"))
    assert faulty_camera.wait_for_exit() == 0
