"""What a request may cost: documents that are made to grow, bodies of odd lengths or without an end, peers
that do not take their answer."""
import contextlib
import os
import signal
import time

import pytest

from answers import DEVICE_ERROR, INVALID_OPERATION, LOGGED_IN, NO_RESOURCE, OK, answer
from camera import REPLIES, REQUESTS
from faults import let_pass, seconds
from peers import peer
from simulator.device import EXCHANGE
from simulator.fastcgi import INPUT, stream
from simulator.messages import DONE, reply

INFO = "/PSIA/System/deviceInfo"
NAME = "<DeviceInfo><deviceName>sent</deviceName></DeviceInfo>"
STORED = ["Network.DDNSHostname = sent", OK]  # the column of the device's name
CONFIGURATION = "/PSIA/System/configurationData"
KIB, MIB = 1 << 10, 1 << 20
PEER_TIMEOUT, TIMEOUT_AFTER_STOP = 30, 1.5  # seconds without progress
SPEED = 40  # times: the timeout of 30 s takes 0.75 s


# Documents.

@pytest.mark.parametrize("encoding", ["utf-8", "iso-8859-1", "utf-7", "cp037", "shift_jis"])
@pytest.mark.parametrize("declaration, effects", [
    pytest.param("<!ENTITY a 'b'>", [DEVICE_ERROR], id="entity"),
    pytest.param("<!ENTITY % a 'b'>", [DEVICE_ERROR], id="parameter entity"),
    pytest.param("<!ENTITY a SYSTEM 'b'>", [DEVICE_ERROR], id="external entity"),
    pytest.param("<!NOTATION n SYSTEM 'n'><!ENTITY a SYSTEM 'b' NDATA n>", [DEVICE_ERROR],
                 id="unparsed entity"),
    pytest.param("<!ELEMENT a ANY>", STORED, id="no entity"),
])
def test_a_document_that_declares_an_entity_is_refused(camera, encoding, declaration, effects):
    document = f"<?xml version='1.0' encoding='{encoding}'?><!DOCTYPE DeviceInfo [{declaration}]>{NAME}"
    # Python encodes no letter in UTF-7; an E in base 64 hides the word ENTITY from a search for its bytes.
    content = document.replace("E", "+AEU-").encode() if encoding == "utf-7" else document.encode(encoding)
    assert camera.effects("PUT", INFO, content) == effects


def different_names(count, before, after):
    """That many names, each with something around it. The parser keeps each of them."""
    return "".join(f"{before}n{number}{after}" for number in range(count))


NEAR_THE_BOUNDS = f"""
    <DeviceInfo>
      {different_names(6000, "<", "/>")}
      <a>{850000 * "x"}</a>
      <a {different_names(5900, " ", '="&amp;"')}/>
    </DeviceInfo>"""
TOO_MANY_ELEMENTS = f"<DeviceInfo>{260000 * '<a/>'}</DeviceInfo>"  # within 1 MiB


@pytest.mark.memory
@pytest.mark.parametrize("document, received", [
    pytest.param(NEAR_THE_BOUNDS, OK, id="near 1 MiB and 6000 attributes, with 6000 names"),
    pytest.param(TOO_MANY_ELEMENTS, DEVICE_ERROR, id="elements far beyond their bound"),
])
def test_a_document_costs_at_most_6_mb_and_gives_it_back(camera, document, received):
    camera.call("PUT", INFO, NAME.ljust(MIB))  # what is allocated once
    resident, dirty = camera.memory("status", "VmRSS"), camera.memory("smaps_rollup", "Private_Dirty")
    start = time.monotonic()
    assert camera.call("PUT", INFO, document) == answer(INFO, received)
    assert time.monotonic() - start < 8  # half a second on a quiet machine
    assert camera.memory("status", "VmHWM") < resident + 6000000
    assert camera.memory("smaps_rollup", "Private_Dirty") < dirty + 300000  # of the 6 MB


def put_document(camera, before, content):
    """What a DeviceInfo with this content is answered."""
    return camera.call("PUT", INFO, f"{before}<DeviceInfo>{content}</DeviceInfo>")


@pytest.mark.parametrize("most, piece, before", [
    pytest.param(10000 - 1, "<a/>", "", id="10000 elements with the root"),
    pytest.param(6000, "=", "", id="6000 equals signs, each of which may belong to an attribute"),
    pytest.param(6000, "<?a?>", "", id="6000 processing instructions"),
    pytest.param(6000 // 3, "<?a?><a b='' xmlns='c'/>", "", id="6000 of both together, three a piece"),
    pytest.param(6000, "&a;", "<!DOCTYPE DeviceInfo SYSTEM 'x'>", id="6000 references"),
])
def test_a_document_with_as_many_items_as_allowed_passes_and_with_one_more_fails(camera, most, piece, before):
    assert put_document(camera, before, most * piece) == answer(INFO, OK)
    assert put_document(camera, before, (most + 1) * piece) == answer(INFO, DEVICE_ERROR)


@pytest.mark.parametrize("largest, before", [
    pytest.param(MIB, "<?xml version='1.0' encoding='ASCII'?>", id="ASCII"),
    pytest.param(512 * KIB, "<?xml version='1.0' encoding='iso-8859-1'?>", id="Latin"),
    pytest.param(32 * KIB, "<?xml version='1.0' encoding='SHIFT_JIS'?>", id="an unusual encoding"),
    pytest.param(32 * KIB, "<!DOCTYPE DeviceInfo [<!ELEMENT a ANY>]>", id="declarations"),
])
def test_a_document_as_large_as_allowed_passes_and_with_one_more_byte_fails(camera, largest, before):
    spaces = largest - len(f"{before}<DeviceInfo></DeviceInfo>")
    assert put_document(camera, before, spaces * " ") == answer(INFO, OK)
    assert put_document(camera, before, (spaces + 1) * " ") == answer(INFO, DEVICE_ERROR)


def processor_time(camera, document):
    """Nanoseconds that the service needs for a document, whatever else the machine does."""
    before = int(camera.state("schedstat").split()[0])
    camera.call("PUT", INFO, document)
    return int(camera.state("schedstat").split()[0]) - before


@pytest.mark.parametrize("beginning, error", [
    pytest.param("", "\1", id="in a text"),
    pytest.param("<!--", "\1", id="in a comment"),
    pytest.param("<a b='", "&x;", id="in an attribute"),
])
def test_a_document_is_read_no_further_than_its_first_error(camera, beginning, error):
    good = processor_time(camera, NAME.ljust(MIB))
    errors = MIB // len(error) * error
    faulty = processor_time(camera, f"<DeviceInfo>{beginning}{errors}"[:MIB])
    assert faulty < 5 * good  # 35 times as long when all errors are met


# Bodies.

def test_a_body_of_more_than_1_mib_is_refused_but_a_web_server_can_send_all_of_it(camera):
    uri = "/PSIA/System/time/localTime"
    camera.execute("update Network set DateTimeSync=2")  # NTP: any time is ignored, so only the size fails
    with peer(camera, "PUT", uri, (MIB + 1) * "x", first=0) as web_server:
        web_server.socket.sendall(web_server.rest)  # fails when the service closes the connection too early
        assert web_server.receive()[0] == answer(uri, DEVICE_ERROR)


@pytest.mark.parametrize("length", [
    pytest.param(None, id="none"),
    pytest.param("-1", id="negative"),
    pytest.param(str(len(NAME) + 1), id="one byte more than there are"),
    pytest.param(str(len(NAME) + (1 << 32)), id="2 to the 32 more than there are"),
])
def test_a_false_content_length_is_refused(camera, length):
    assert camera.effects("PUT", INFO, NAME, variables={"CONTENT_LENGTH": length}) == [DEVICE_ERROR]


def test_a_body_is_parsed_up_to_its_first_zero_byte(camera):
    assert camera.effects("PUT", INFO, NAME + "\0<") == STORED


def test_a_body_of_100000_elements_that_do_not_end_is_refused_and_nothing_is_printed(camera):
    assert camera.effects("PUT", INFO, 100000 * "<a>") == [DEVICE_ERROR]


def test_a_body_ends_after_30_seconds_of_silence(faulty_camera):
    faulty_camera.plan.speed = SPEED
    with peer(faulty_camera, "PUT", INFO, NAME, finished=False, first=-len("</DeviceInfo>")) as silent:
        faulty_camera.wait_until_blocked_in("read")
        start = seconds(faulty_camera)
        assert silent.receive()[0] == answer(INFO, DEVICE_ERROR)
        assert PEER_TIMEOUT * 0.9 < seconds(faulty_camera) - start < PEER_TIMEOUT * 10


def test_a_body_that_arrives_slowly_is_read(faulty_camera):
    faulty_camera.plan.speed = SPEED
    last_bytes = 2  # which take longer than the timeout, together
    with peer(faulty_camera, "PUT", INFO, NAME, finished=False, first=-last_bytes) as slow:
        for byte in slow.rest:
            let_pass(faulty_camera, PEER_TIMEOUT * 0.6)
            slow.send_bytes(bytes([byte]))
        assert slow.receive()[0] == answer(INFO, OK)


def test_a_request_that_begins_late_is_not_ended_by_the_timer_of_an_earlier_body(faulty_camera):
    faulty_camera.plan.speed = SPEED
    assert faulty_camera.call("PUT", INFO, NAME) == answer(INFO, OK)
    with peer(faulty_camera, "GET", NO_RESOURCE, first=0) as late:
        let_pass(faulty_camera, PEER_TIMEOUT * 1.5)
        late.send_rest()
        assert late.receive()[0] == LOGGED_IN


# Media and peers that are slow.

@pytest.fixture
def medium():
    """In place of the uploaded file a pipe, which blocks while nobody reads and it holds 64 KiB."""
    path = EXCHANGE / "psia_config.dat"
    path.unlink(missing_ok=True)
    os.mkfifo(path)
    yield path
    path.unlink()


@pytest.mark.parametrize("stop", [False, True], ids=["no stop", "stop"])
def test_a_medium_that_blocks_does_not_truncate_an_upload(faulty_camera, medium, stop):
    faulty_camera.plan.speed = SPEED
    content = 100 * KIB * b"s"  # more than the pipe holds, also without the part that is sent last
    with peer(faulty_camera, "PUT", CONFIGURATION, content, first=-20 * KIB) as client, \
            open(medium, "rb") as reader:
        faulty_camera.wait_until_blocked_in("write")
        if stop:
            faulty_camera.process.send_signal(signal.SIGTERM)
        let_pass(faulty_camera, PEER_TIMEOUT * 1.5)
        client.send_rest()
        assert len(reader.read()) == len(content)
        assert client.receive()[0] == answer(CONFIGURATION, OK)


EXPORTED = MIB * b"e"  # more than a socket holds


@contextlib.contextmanager
def stuck_download(camera):
    """A peer that downloads a large file and has not yet taken any of it, and when it began."""
    (EXCHANGE / "export.dat").write_bytes(EXPORTED)
    start = seconds(camera)
    with peer(camera, "GET", CONFIGURATION) as client:
        assert REPLIES.send(reply(REQUESTS.next(), DONE, b"export.dat"))
        camera.wait_until_blocked_in("write")
        yield client, start


def test_a_peer_that_does_not_take_its_answer_is_left_after_30_seconds(faulty_camera):
    faulty_camera.plan.speed = SPEED
    with stuck_download(faulty_camera) as (client, start):
        assert faulty_camera.call("GET", NO_RESOURCE) == LOGGED_IN
        assert seconds(faulty_camera) - start > PEER_TIMEOUT
        with pytest.raises(AssertionError, match="closed without an end"):
            client.receive()


def test_a_peer_that_does_not_take_its_answer_is_left_soon_after_a_stop(faulty_camera):
    faulty_camera.plan.speed = SPEED
    with stuck_download(faulty_camera) as (client, _):
        start = seconds(faulty_camera)
        assert faulty_camera.stop_service() == 0
        assert TIMEOUT_AFTER_STOP < seconds(faulty_camera) - start
        with pytest.raises(AssertionError, match="closed without an end"):
            client.receive()


def test_a_peer_that_takes_its_answer_slowly_receives_all_of_it(faulty_camera):
    faulty_camera.plan.speed = SPEED
    with stuck_download(faulty_camera) as (client, _):
        received = b""
        for _ in range(3):  # longer than the timeout, all together
            received += client.socket.recv(64 * KIB)
            let_pass(faulty_camera, PEER_TIMEOUT * 0.6)
        while more := client.socket.recv(64 * KIB):
            received += more
    assert received.count(b"e") > len(EXPORTED)  # the headers have some, too


@pytest.mark.parametrize("request_ends", [True, False], ids=["after its request", "within its request"])
def test_what_a_peer_sends_after_its_answer_delays_nobody(faulty_camera, request_ends):
    faulty_camera.plan.speed = 20  # a timeout of 30 s takes 1.5 s; a peer that sends on would never meet it
    with peer(faulty_camera, "PUT", NO_RESOURCE, "body", finished=request_ends) as talkative:
        assert talkative.receive()[0] == answer(NO_RESOURCE, INVALID_OPERATION)
        with peer(faulty_camera, "GET", NO_RESOURCE) as later:
            deadline = time.monotonic() + 30
            while not later.answers_within(0.01):
                talkative.send_bytes(stream(INPUT, b"more", end=False))
                assert time.monotonic() < deadline, "The later request has no answer within 30 s."
            assert later.receive()[0] == LOGGED_IN
