"""From start to stop: what the service waits for, how long, and how it is told to end."""
import os
import signal
import socket

import pytest

from camera import DATABASE, REPLIES, REQUESTS, UNAUTHORIZED, FaultPlan, libc, reply, status

AUDIO = "/PSIA/System/Audio/channels/1"
REBOOT = "/PSIA/System/reboot"
CHANNEL = "/PSIA/Streaming/channels/1"
SWITCHED_OFF = ["Audio.Enable = 0", "message 3 audio", "status 1"]


# The start.

def test_without_a_database_it_says_so_and_ends(unstarted_camera):
    DATABASE.unlink()
    DATABASE.mkdir()
    unstarted_camera.start_service()
    assert unstarted_camera.wait_for_exit() == 255
    assert unstarted_camera.standard_error() == "PSIA: DB Open Failed\n"
    DATABASE.rmdir()


@pytest.mark.parametrize("queue, number", [(REQUESTS, signal.SIGTERM), (REPLIES, signal.SIGUSR1)])
def test_it_can_be_stopped_while_a_queue_is_missing(unstarted_camera, queue, number):
    queue.remove()
    unstarted_camera.start_service()
    unstarted_camera.wait_until_blocked_in("clock_nanosleep")
    assert unstarted_camera.stop_service(number) == 0


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGUSR1])
def test_a_stop_that_the_parent_blocked_ends_it(unstarted_camera, number):
    signal.pthread_sigmask(signal.SIG_BLOCK, [number])
    unstarted_camera.start_service()
    signal.pthread_sigmask(signal.SIG_UNBLOCK, [number])
    unstarted_camera.call("GET", "/PSIA/x")
    assert unstarted_camera.stop_service(number) == 0


def test_requests_wait_until_both_queues_are_there(faulty_camera):
    faulty_camera.stop_service()
    new_ipc_namespace = 0x08000000
    assert libc.unshare(new_ipc_namespace) == 0  # the first queue there has the number 0
    faulty_camera.plan.speed = 20
    faulty_camera.start_service()
    early = faulty_camera.begin("GET", "/PSIA/x")
    faulty_camera.wait_until_blocked_in("clock_nanosleep")
    REQUESTS.create()
    REPLIES.create()
    assert early.receive()[0] == status(4, "/PSIA/x")
    early.socket.close()
    assert faulty_camera.effects("PUT", AUDIO, "<AudioChannel/>") == SWITCHED_OFF


def test_messages_left_in_the_queues_are_discarded_at_the_start(unstarted_camera):
    for queue in (REQUESTS, REPLIES):
        assert queue.send(b"\1".ljust(5000, b"\0"))
    unstarted_camera.start_service()
    unstarted_camera.call("GET", "/PSIA/x")
    assert REQUESTS.receive() is None
    assert REPLIES.receive() is None


def test_as_a_plain_cgi_program_it_serves_one_request(unstarted_camera):
    unstarted_camera.start_service(cgi=True, environment={
        "REQUEST_METHOD": "GET", "REQUEST_URI": "/PSIA/x", "HTTP_AUTHORIZATION": "Basic YWRtaW46YWRtaW4="})
    assert unstarted_camera.wait_for_exit() == 0
    assert unstarted_camera.standard_output() == status(4, "/PSIA/x")


@pytest.mark.beyond_2038
def test_a_database_file_dated_2040_is_read_and_written(unstarted_camera):
    os.utime(DATABASE, (2208988800, 2208988800))
    unstarted_camera.start_service()
    assert unstarted_camera.effects("PUT", AUDIO, "<AudioChannel/>") == SWITCHED_OFF


# Requests.

def test_a_kept_connection_carries_several_requests(camera):
    connection = camera.begin("GET", "/PSIA/x", keep=True)
    for _ in range(2):
        assert connection.receive()[0] == status(4, "/PSIA/x")
        connection.send({"REQUEST_METHOD": "GET", "REQUEST_URI": "/PSIA/x", "HTTP_AUTHORIZATION":
                         "Basic YWRtaW46YWRtaW4="}, b"", keep=True)


def test_an_alarm_from_outside_does_not_end_it(camera):
    camera.wait_until_blocked_in("accept")
    camera.process.send_signal(signal.SIGALRM)
    for _ in range(2):  # the first one may arrive before the signal does
        assert camera.call("GET", "/PSIA/x") == status(4, "/PSIA/x")


def test_a_client_that_goes_away_disturbs_nobody(camera):
    camera.begin("GET", "/PSIA/indexr", first=0).socket.close()
    camera.begin("PUT", AUDIO, "<AudioChannel/>", first=-20).socket.close()
    camera.begin("GET", "/PSIA/indexr").socket.close()
    assert camera.effects("GET", "/PSIA/x") == ["status 4"]
    assert camera.rows("select Enable from Audio") == [(1,)]


def test_a_request_is_not_judged_by_a_part_of_its_parameters(camera):
    unfinished = camera.begin("GET", "/PSIA/x", first=63)  # method and URI, but no credentials
    unfinished.socket.shutdown(socket.SHUT_WR)
    assert unfinished.socket.recv(1) == b""
    assert camera.effects("GET", "/PSIA/x") == ["status 4"]


@pytest.mark.memory
def test_a_thousand_requests_leave_memory_and_descriptors_where_they_were(camera):
    def ask(times):
        for _ in range(times):
            camera.call("GET", "/PSIA/System/deviceInfo")
            camera.call("GET", "/PSIA/System/Network/interfaces")
            camera.call("PUT", "/PSIA/System/configurationData", 5000 * "c")
            camera.call("PUT", AUDIO, "<AudioChannel>")
    ask(50)
    descriptors, memory = camera.open_descriptors(), camera.memory("status", "VmRSS")
    ask(200)
    assert camera.open_descriptors() == descriptors
    assert camera.memory("status", "VmRSS") <= memory + 65536


# Messages and the database.

@pytest.mark.parametrize("uri, milliseconds", [
    (REBOOT, 5100), ("/PSIA/System/factoryReset?mode=full", 180100)])
def test_a_reply_is_awaited_so_long(faulty_camera, uri, milliseconds):
    faulty_camera.plan.speed = 1000
    assert faulty_camera.effects("PUT", uri, replies=[None])[1:] == ["status 2"]
    assert faulty_camera.plan.slept == milliseconds


def test_only_its_own_reply_counts_and_a_late_one_is_taken_for_the_next(faulty_camera):
    faulty_camera.plan.speed = 100
    request = faulty_camera.begin("PUT", REBOOT)
    message = REQUESTS.next()
    message.type += 1
    assert REPLIES.send(reply(message, 0))
    assert request.receive()[0] == status(2, REBOOT)
    request.socket.close()
    message.type -= 1
    assert REPLIES.send(reply(message, 2))
    assert faulty_camera.effects("PUT", REBOOT) == ["message 8 reboot", "status 3"]


def test_a_request_sends_32_messages_and_the_next_fails_its_update(faulty_camera):
    faulty_camera.plan.speed = 10
    for videos, answer in [(40, "status 3"), (32, "status 1")]:  # each request counts anew
        channel = "".join(f"<Video><constantBitRate>{i + 1}</constantBitRate></Video>" for i in range(videos))
        effects = faulty_camera.effects("PUT", CHANNEL, f"<StreamingChannel>{channel}</StreamingChannel>")
        assert effects.count("message 2 encoder: master = 1") == 32
        assert effects[-1] == answer
        assert faulty_camera.rows("select Bitrate from VideoEncoder where VideoEncoderID=0") == [(32,)]


def test_a_full_queue_is_waited_for_until_there_is_room(camera):
    REQUESTS.fill()
    waiting = camera.begin("PUT", REBOOT)
    camera.wait_until_blocked_in("msgsnd")
    while (message := REQUESTS.next()).command != 8:
        pass
    assert REPLIES.send(reply(message, 0))
    assert waiting.receive()[0] == status(1, REBOOT)


def test_a_queue_that_is_gone_is_answered_with_busy(camera):
    REQUESTS.remove()
    assert camera.effects("PUT", REBOOT) == [
        "reported Send Message using Message Queue 1 Failed\n: Invalid argument", "status 2"]


def test_a_locked_database_is_tried_seven_times(faulty_camera):
    faulty_camera.plan.speed = 200
    faulty_camera.plan.let_fail(FaultPlan.LOCK, fail=7)
    assert faulty_camera.call("GET", "/PSIA/x") == UNAUTHORIZED
    assert faulty_camera.plan.slept == 50 + 100 + 150 + 200 + 250 + 300
