"""A stop ends the service in each of its waits, and truncates no request that is arriving."""
import contextlib
import signal

import pytest

from answers import DEVICE_BUSY, DEVICE_ERROR, LOGGED_IN, NO_RESOURCE, OK, answer, elements
from camera import REPLIES, REQUESTS
from faults import FOREVER, LOCKS_OF_A_LOGIN, WAIT_FOR_A_LOCK, FaultPlan, let_pass, seconds
from peers import peer, up_to_uri
from simulator.messages import DONE, FAILED, reply

INFO = "/PSIA/System/deviceInfo"
REBOOT = "/PSIA/System/reboot"
CHANNEL = "/PSIA/Streaming/channels/1"
TIMEOUT_AFTER_STOP = 1.5  # seconds without a byte
SPEED = 3  # times: the timeout takes half a second, which also a busy machine keeps


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGUSR1])
def test_a_stop_lets_the_request_in_progress_finish(camera, number):
    with peer(camera, "PUT", REBOOT) as client:
        message = REQUESTS.next()
        camera.process.send_signal(number)
        camera.process.send_signal(number)
        assert REPLIES.send(reply(message, FAILED))
        assert client.receive()[0] == answer(REBOOT, DEVICE_ERROR)
    assert camera.wait_for_exit() == 0


@pytest.mark.parametrize("connections", [1, 2])
def test_connections_that_send_nothing_delay_a_stop_by_less_than_a_timeout(faulty_camera, connections):
    faulty_camera.plan.speed = 1  # real time: a busy machine must not look like the timeout
    with contextlib.ExitStack() as silent:
        for _ in range(connections):
            silent.enter_context(peer(faulty_camera, "GET", NO_RESOURCE, first=0))
        faulty_camera.wait_until_blocked_in("poll")
        stopped = seconds(faulty_camera)
        assert faulty_camera.stop_service() == 0
        assert seconds(faulty_camera) < stopped + TIMEOUT_AFTER_STOP


def test_parameters_that_do_not_all_arrive_soon_after_a_stop_get_no_answer(faulty_camera):
    faulty_camera.plan.speed = SPEED
    with peer(faulty_camera, "GET", NO_RESOURCE, first=up_to_uri("GET", NO_RESOURCE)) as client:
        faulty_camera.wait_until_blocked_in("read")
        stopped = seconds(faulty_camera)
        assert faulty_camera.stop_service() == 0
        assert seconds(faulty_camera) >= stopped + TIMEOUT_AFTER_STOP
        assert client.socket.recv(1) == b""


@pytest.mark.parametrize("sent_before", [
    pytest.param(up_to_uri("PUT", INFO), id="within the parameters"),
    pytest.param(-1, id="before the last byte of the body"),
])
def test_the_silence_of_a_peer_is_counted_from_the_stop_on(faulty_camera, sent_before):
    faulty_camera.plan.speed = SPEED
    with peer(faulty_camera, "PUT", INFO, "<DeviceInfo/>", finished=False, first=sent_before) as client:
        let_pass(faulty_camera, TIMEOUT_AFTER_STOP + 0.5)  # before the stop this is no timeout
        stopped = seconds(faulty_camera)
        faulty_camera.process.send_signal(signal.SIGTERM)
        client.send_bytes(client.rest[:-1])
        assert client.receive()[0] == answer(INFO, DEVICE_ERROR)
        assert TIMEOUT_AFTER_STOP * 0.8 < seconds(faulty_camera) - stopped < 10 * TIMEOUT_AFTER_STOP
    assert faulty_camera.wait_for_exit() == 0


def test_a_stop_does_not_truncate_a_body_that_is_arriving(faulty_camera):
    faulty_camera.plan.speed = SPEED
    body = "<DeviceInfo><deviceName>arrived</deviceName></DeviceInfo>"
    last_bytes = 5  # which take longer than the timeout, all together
    with peer(faulty_camera, "PUT", INFO, body, finished=False, first=-last_bytes) as client:
        faulty_camera.wait_until_blocked_in("read")
        for byte in client.rest:
            faulty_camera.process.send_signal(signal.SIGTERM)
            faulty_camera.process.send_signal(signal.SIGALRM)
            let_pass(faulty_camera, TIMEOUT_AFTER_STOP * 0.3)
            client.send_bytes(bytes([byte]))
        assert client.receive()[0] == answer(INFO, OK)
    assert faulty_camera.wait_for_exit() == 0
    assert faulty_camera.rows("select DDNSHostname from Network") == [("arrived",)]


def test_a_stop_ends_a_list_between_two_messages(camera):
    videos = "".join(f"<Video><constantBitRate>{number}</constantBitRate></Video>" for number in range(1, 20))
    with peer(camera, "PUT", CHANNEL, f"<StreamingChannel>{videos}</StreamingChannel>") as client:
        assert REPLIES.send(reply(REQUESTS.next(), DONE))
        second = REQUESTS.next()
        camera.process.send_signal(signal.SIGTERM)
        assert REPLIES.send(reply(second, DONE))
        assert client.receive()[0] == answer(CHANNEL, DEVICE_ERROR)
    assert camera.wait_for_exit() == 0
    assert camera.rows("select Bitrate from VideoEncoder where VideoEncoderID=0") == [(2,)]  # of the second


def test_after_a_stop_the_wait_for_a_lock_is_the_last(faulty_camera):
    faulty_camera.plan.speed = SPEED
    faulty_camera.plan.let_fail(FaultPlan.LOCK, skip=LOCKS_OF_A_LOGIN, fail=FOREVER)
    with peer(faulty_camera, "GET", INFO) as client:  # which queries the database four times
        faulty_camera.wait_until_blocked_in("clock_nanosleep")
        faulty_camera.process.send_signal(signal.SIGTERM)
        assert elements(client.receive()[0])["model"] == "Quellan IP Camera"  # as without a row
    assert faulty_camera.wait_for_exit() == 0
    assert faulty_camera.plan.slept == WAIT_FOR_A_LOCK


def test_a_stop_just_before_an_accept_is_not_lost(faulty_camera):
    faulty_camera.wait_until_blocked_in("accept")
    faulty_camera.plan.stop_before_next_wait()  # the accept that follows this request
    assert faulty_camera.call("GET", NO_RESOURCE) == LOGGED_IN
    assert faulty_camera.wait_for_exit() == 0


def test_a_stop_just_before_a_message_is_sent_to_a_full_queue_is_not_lost(faulty_camera):
    REQUESTS.fill()
    faulty_camera.wait_until_blocked_in("accept")
    faulty_camera.plan.stop_before_next_wait()
    assert faulty_camera.call("PUT", REBOOT) == answer(REBOOT, DEVICE_BUSY)  # it was not sent
    assert faulty_camera.wait_for_exit() == 0
