"""From start to stop: what the service waits for, and how it is told to end."""
import signal
import time

import pytest

from camera import REPLIES, REQUESTS, FaultPlan, reply, status

AUDIO = "/PSIA/System/Audio/channels/1"
INFO = "/PSIA/System/deviceInfo"


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGUSR1])
def test_a_stop_lets_the_request_at_hand_finish(camera, number):
    busy = camera.begin("PUT", AUDIO, "<AudioChannel/>")
    message = REQUESTS.next()
    camera.process.send_signal(number)
    assert REPLIES.send(reply(message, 2))
    assert busy.receive()[0] == status(3, AUDIO)
    assert camera.wait_for_exit() == 0


def test_a_full_queue_is_waited_for_until_a_stop(camera):
    while REQUESTS.send(b"\1".ljust(5000, b"\0")):
        pass
    waiting = camera.begin("PUT", AUDIO, "<AudioChannel/>")
    camera.wait_until_blocked_in("msgsnd")
    assert camera.stop_service() == 0
    answer, errors = waiting.receive()
    assert answer == status(2, AUDIO)
    assert errors.startswith("Send Message using Message Queue 1 Failed\n")


def test_a_kept_connection_carries_several_requests(camera):
    connection = camera.begin("GET", "/PSIA/x", keep=True)
    for _ in range(2):
        assert connection.receive()[0] == status(4, "/PSIA/x")
        connection.send({"REQUEST_METHOD": "GET", "REQUEST_URI": "/PSIA/x", "HTTP_AUTHORIZATION":
                         "Basic YWRtaW46YWRtaW4="}, b"", keep=True)


def test_a_stop_ends_a_request_that_waits_for_its_body(faulty_camera):
    camera = faulty_camera
    camera.plan.speed = 5
    body = "<DeviceInfo><deviceName>arrived</deviceName></DeviceInfo>"
    longer = {"CONTENT_LENGTH": str(len(body) + 1)}
    unfinished = camera.begin("PUT", INFO, body, variables=longer, finished=False)
    time.sleep(0.4)  # longer than the patience after a stop, which counts from the stop
    camera.process.send_signal(signal.SIGTERM)
    assert unfinished.receive()[0] == status(3, INFO)
    assert camera.wait_for_exit() == 0
    assert camera.rows("select DDNSHostname from Network") == [("camera-1",)]


def test_a_locked_database_is_tried_seven_times(faulty_camera):
    faulty_camera.plan.speed = 200
    faulty_camera.plan.let_fail(FaultPlan.LOCK, fail=7)
    assert "401" in faulty_camera.call("GET", "/PSIA/x")
    assert faulty_camera.plan.slept == 50 + 100 + 150 + 200 + 250 + 300
