"""From start to stop: what the service waits for, how long, and how it is told to end."""
import datetime
import os
import signal
import socket

import pytest

from answers import DEVICE_BUSY, DEVICE_ERROR, LOGGED_IN, NO_RESOURCE, OK, answer, contents, logged_in
from camera import DATABASE, REPLIES, REQUESTS
from faults import FAST
from peers import peer, up_to_uri
from simulator.messages import BODY, DONE, FAILED, TYPE_WORD, reply

AUDIO = "/PSIA/System/Audio/channels/1"
REBOOT = "/PSIA/System/reboot"
FACTORY_RESET = "/PSIA/System/factoryReset?mode=full"
CHANNEL = "/PSIA/Streaming/channels/1"
AUDIO_OFF = "<AudioChannel><enabled>false</enabled></AudioChannel>"
AUDIO_SWITCHED_OFF = ["Audio.Enable = 0", "message 3 audio", OK]
# What a web server sends for a request by admin:admin.
VARIABLES = {"REQUEST_METHOD": "GET", "REQUEST_URI": NO_RESOURCE,
             "HTTP_AUTHORIZATION": "Basic YWRtaW46YWRtaW4="}
STOPS = [pytest.param(signal.SIGTERM, id="SIGTERM"), pytest.param(signal.SIGUSR1, id="SIGUSR1")]


# The start.

def test_without_a_database_the_service_says_so_and_ends(unstarted_camera):
    DATABASE.unlink()
    DATABASE.symlink_to("/no/such/folder/morvid.db")  # otherwise the service would create the file
    unstarted_camera.start_service()
    assert unstarted_camera.wait_for_exit() == 0xFF  # of its result -1 a parent sees the low byte
    assert unstarted_camera.standard_error() == "PSIA: DB Open Failed\n"


@pytest.mark.parametrize("number", STOPS)
@pytest.mark.parametrize("queue", [REQUESTS, REPLIES], ids=["requests", "replies"])
def test_the_service_can_be_stopped_while_a_queue_is_missing(unstarted_camera, queue, number):
    queue.remove()
    unstarted_camera.start_service()
    unstarted_camera.wait_until_blocked_in("clock_nanosleep")
    assert unstarted_camera.stop_service(number) == 0


@pytest.mark.parametrize("number", STOPS)
def test_a_stop_ends_the_service_although_its_parent_blocked_the_signal(unstarted_camera, number):
    signal.pthread_sigmask(signal.SIG_BLOCK, [number])  # a new process inherits this
    unstarted_camera.start_service()
    signal.pthread_sigmask(signal.SIG_UNBLOCK, [number])
    assert logged_in(unstarted_camera)
    assert unstarted_camera.stop_service(number) == 0


def test_requests_wait_until_both_queues_are_there(unstarted_camera):
    REQUESTS.remove()
    REPLIES.remove()
    unstarted_camera.start_service()
    with peer(unstarted_camera, "GET", NO_RESOURCE) as early:
        unstarted_camera.wait_until_blocked_in("clock_nanosleep")
        REQUESTS.create()
        REPLIES.create()
        assert early.receive()[0] == LOGGED_IN
    assert unstarted_camera.effects("PUT", AUDIO, AUDIO_OFF) == AUDIO_SWITCHED_OFF


def test_messages_left_in_the_queues_are_discarded_at_the_start(unstarted_camera):
    for queue in (REQUESTS, REPLIES):
        assert queue.send(b"\1".ljust(TYPE_WORD + BODY, b"\0"))  # its type is 1, the id of another process
    unstarted_camera.start_service()
    assert logged_in(unstarted_camera)
    assert REQUESTS.receive() is None
    assert REPLIES.receive() is None


def test_as_a_plain_cgi_program_the_service_serves_one_request(unstarted_camera):
    unstarted_camera.start_service(cgi=open("/dev/null", "rb"), environment=VARIABLES)
    assert unstarted_camera.wait_for_exit() == 0
    assert unstarted_camera.standard_output() == LOGGED_IN


def test_a_stop_ends_the_wait_of_a_plain_cgi_program_for_its_body(faulty_camera):
    faulty_camera.stop_service()  # the fixture started it for FastCGI
    faulty_camera.plan.speed = FAST  # a stopped service waits 1.5 s more for a byte
    put = VARIABLES | {"REQUEST_METHOD": "PUT", "REQUEST_URI": AUDIO, "CONTENT_LENGTH": "1"}
    silent, standard_input = socket.socketpair()
    with silent:
        faulty_camera.start_service(cgi=standard_input, environment=put)
        faulty_camera.wait_until_blocked_in("poll")
        assert faulty_camera.stop_service() == 0
    assert faulty_camera.standard_output() == answer(AUDIO, DEVICE_ERROR)


@pytest.mark.beyond_2038
def test_a_database_file_dated_2040_is_read_and_written(unstarted_camera):
    in_2040 = datetime.datetime(2040, 1, 1).timestamp()
    os.utime(DATABASE, (in_2040, in_2040))
    unstarted_camera.start_service()
    assert unstarted_camera.effects("PUT", AUDIO, AUDIO_OFF) == AUDIO_SWITCHED_OFF


# Requests.

def test_a_kept_connection_carries_several_requests(camera):
    with peer(camera, "GET", NO_RESOURCE, keep=True) as client:
        assert client.receive()[0] == LOGGED_IN
        for _ in range(2):
            client.send(VARIABLES, b"", keep=True)
            assert client.receive()[0] == LOGGED_IN


def test_a_sigalrm_from_outside_does_not_end_the_service(camera):
    camera.wait_until_blocked_in("accept")
    camera.process.send_signal(signal.SIGALRM)
    assert logged_in(camera)  # this request may arrive before the signal does
    assert logged_in(camera)


@pytest.mark.parametrize("sent, audio_enabled", [
    pytest.param(0, 1, id="before it sends anything"),
    pytest.param(-len("</AudioChannel>"), 1, id="within the body"),
    pytest.param(None, 0, id="before it reads the answer"),
])
def test_a_client_that_goes_away_disturbs_nobody(camera, sent, audio_enabled):
    whole = sent is None  # only then audio is switched off, which in the factory state is on
    with peer(camera, "PUT", AUDIO, AUDIO_OFF, finished=whole, first=sent):
        if whole:
            assert REPLIES.send(reply(REQUESTS.next(), DONE))
    assert logged_in(camera)
    assert camera.rows("select Enable from Audio") == [(audio_enabled,)]


def test_a_request_is_not_judged_by_a_part_of_its_parameters(camera):
    # The URI has come and the credentials have not, but no 401 may be sent.
    with peer(camera, "GET", NO_RESOURCE, first=up_to_uri("GET", NO_RESOURCE)) as client:
        client.socket.shutdown(socket.SHUT_WR)
        assert client.socket.recv(1) == b""
    assert logged_in(camera)


@pytest.mark.memory
def test_a_thousand_requests_leave_memory_and_descriptors_where_they_were(camera):
    def ask(times):
        for _ in range(times):
            camera.call("GET", "/PSIA/System/deviceInfo")
            camera.call("GET", "/PSIA/System/Network/interfaces")
            camera.call("PUT", "/PSIA/System/configurationData", 5000 * "c")
            camera.call("PUT", AUDIO, "<AudioChannel>")  # which is not well-formed
    ask(50)  # what is allocated once
    descriptors, memory = camera.open_descriptors(), camera.memory("status", "VmRSS")
    ask(200)
    assert camera.open_descriptors() == descriptors
    assert camera.memory("status", "VmRSS") <= memory + 64 * 1024  # a leak of 64 bytes a request is more


# Messages and the database.

@pytest.mark.parametrize("uri, seconds", [pytest.param(REBOOT, 5, id="reboot"),
                                          pytest.param(FACTORY_RESET, 180, id="factory reset")])
def test_a_reply_is_awaited_for_5_s_or_180_s(faulty_camera, uri, seconds):
    faulty_camera.plan.speed = 1000  # 180 s take 0.2 s
    _, received = faulty_camera.effects("PUT", uri, replies=[None])
    assert received == DEVICE_BUSY  # as no reply came
    interval = 100  # milliseconds between two looks for a reply; it also sleeps after the last one
    assert faulty_camera.plan.slept == seconds * 1000 + interval


def test_a_reply_to_another_process_is_not_taken(faulty_camera):
    faulty_camera.plan.speed = FAST
    with peer(faulty_camera, "PUT", REBOOT) as client:
        message = REQUESTS.next()
        message.type += 1  # another process id
        assert REPLIES.send(reply(message, DONE))
        assert client.receive()[0] == answer(REBOOT, DEVICE_BUSY)  # as no other reply came


def test_a_late_reply_is_taken_for_the_next_request(faulty_camera):
    faulty_camera.plan.speed = FAST
    with peer(faulty_camera, "PUT", REBOOT) as client:
        message = REQUESTS.next()
        assert client.receive()[0] == answer(REBOOT, DEVICE_BUSY)
    assert REPLIES.send(reply(message, FAILED))
    assert faulty_camera.effects("PUT", REBOOT) == ["message 8 reboot", DEVICE_ERROR]


def test_a_request_sends_at_most_32_messages_and_the_33rd_update_is_not_stored(faulty_camera):
    def put_videos(count):
        videos = "".join(f"<Video><constantBitRate>{rate}</constantBitRate></Video>" for rate in range(count))
        return faulty_camera.effects("PUT", CHANNEL, f"<StreamingChannel>{videos}</StreamingChannel>")
    faulty_camera.plan.speed = FAST
    for _ in range(2):  # each request counts anew
        effects = put_videos(33)
        assert effects.count("message 2 encoder: master = 1") == 32
        assert effects[-1] == DEVICE_ERROR
        # The rates count from 0: 31 is that of the 32nd video.
        assert faulty_camera.rows("select Bitrate from VideoEncoder where VideoEncoderID=0") == [(31,)]
    assert put_videos(32)[-1] == OK


def test_a_full_queue_is_waited_for_until_there_is_room(camera):
    REQUESTS.fill()
    with peer(camera, "PUT", REBOOT) as client:
        camera.wait_until_blocked_in("msgsnd")
        camera.process.send_signal(signal.SIGALRM)  # interrupts the system call
        while "reboot" not in contents(message := REQUESTS.next(), camera.process.pid):
            pass
        assert REPLIES.send(reply(message, DONE))
        assert client.receive()[0] == answer(REBOOT, OK)


def test_a_request_is_answered_with_busy_when_the_queue_is_gone(camera):
    REQUESTS.remove()
    # Queue 1 is that of the requests. To send to one that is gone is an invalid argument for the kernel.
    assert camera.effects("PUT", REBOOT) == [
        "reported Send Message using Message Queue 1 Failed\n: Invalid argument", DEVICE_BUSY]
