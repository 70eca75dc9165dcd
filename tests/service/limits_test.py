"""What a request may cost: documents that are made to grow, bodies of odd lengths or without an end, peers
that do not take their answer."""
import os
import signal
import time

import pytest

from camera import REPLIES, REQUESTS, eventually, reply, status
from simulator.device import EXCHANGE
from simulator.fastcgi import INPUT, stream

INFO = "/PSIA/System/deviceInfo"
NAME = "<DeviceInfo><deviceName>sent</deviceName></DeviceInfo>"
STORED = ["Network.DDNSHostname = sent", "status 1"]
CONFIGURATION = "/PSIA/System/configurationData"
UPLOADED = EXCHANGE / "psia_config.dat"


def names(count, before, after):
    """That many different names, each with something around it."""
    return "".join(f"{before}n{number}{after}" for number in range(count))


# Documents.

@pytest.mark.parametrize("encoding", ["utf-8", "iso-8859-1", "utf-7", "cp037", "shift_jis"])
@pytest.mark.parametrize("declaration, effects", [
    ("<!ENTITY a 'b'>", ["status 3"]),
    ("<!ENTITY % a 'b'>", ["status 3"]),
    ("<!ENTITY a SYSTEM 'b'>", ["status 3"]),
    ("<!NOTATION n SYSTEM 'n'><!ENTITY a SYSTEM 'b' NDATA n>", ["status 3"]),
    ("<!ELEMENT a ANY>", STORED),
])
def test_a_document_that_declares_an_entity_is_refused(camera, encoding, declaration, effects):
    document = f"<?xml version='1.0' encoding='{encoding}'?><!DOCTYPE DeviceInfo [{declaration}]>{NAME}"
    content = document.replace("E", "+AEU-").encode() if encoding == "utf-7" else document.encode(encoding)
    assert camera.effects("PUT", INFO, content) == effects


@pytest.mark.memory
@pytest.mark.parametrize("code, document", [
    (3, "<DeviceInfo>" + 262000 * "<a/>" + "</DeviceInfo>"),
    (1, "<DeviceInfo>" + names(6000, "<", "/>") + "<a>" + 850000 * "x" + "</a>"
        "<a " + names(5900, " ", '="&amp;"') + "/></DeviceInfo>"),
], ids=["elements", "everything"])
def test_a_document_costs_at_most_6_mb_and_gives_it_back(camera, code, document):
    camera.call("PUT", INFO, NAME + 1000000 * " ")
    resident, dirty = camera.memory("status", "VmRSS"), camera.memory("smaps_rollup", "Private_Dirty")
    start = time.monotonic()
    assert camera.effects("PUT", INFO, document)[-1] == f"status {code}"
    assert time.monotonic() - start < 8
    assert camera.memory("status", "VmHWM") < resident + 6000000
    assert camera.memory("smaps_rollup", "Private_Dirty") < dirty + 300000


@pytest.mark.parametrize("before, most, piece", [
    ("", 9999, "<a/>"),  # and the root
    ("", 6000, "="),
    ("", 6000, "<?a?>"),
    ("", 2000, "<?a?><a b='' xmlns='c'/>"),
    ("<!DOCTYPE DeviceInfo SYSTEM 'x'>", 6000, "&a;"),
    ("<?xml version='1.0' encoding='ASCII'?>", 1048576 - 38 - 25, " "),
    ("<?xml version='1.0' encoding='iso-8859-1'?>", 524288 - 43 - 25, " "),
    ("<?xml version='1.0' encoding='SHIFT_JIS'?>", 32768 - 42 - 25, " "),
    ("<!DOCTYPE DeviceInfo [<!ELEMENT a ANY>]>", 32768 - 40 - 25, " "),
])
def test_each_bound_of_a_document(camera, before, most, piece):
    for count, code in [(most, 1), (most + 1, 3)]:
        body = f"{before}<DeviceInfo>{count * piece}</DeviceInfo>"
        assert camera.call("PUT", INFO, body) == status(code, INFO)


@pytest.mark.parametrize("beginning, error", [("", "\1"), ("<!--", "\1"), ("<a b='", "&x;")])
def test_a_document_is_read_no_further_than_its_first_error(camera, beginning, error):
    def processor_time(document):
        before = int(camera.state("schedstat").split()[0])
        camera.call("PUT", INFO, document)
        return int(camera.state("schedstat").split()[0]) - before
    good = processor_time(NAME.ljust(1048576))
    errors = 1048000 // len(error) * error
    assert processor_time(f"<DeviceInfo>{beginning}{errors}") < 5 * good


# Bodies.

@pytest.mark.parametrize("length, effects", [
    (None, ["status 3"]), ("", ["status 3"]), ("0", ["status 3"]), ("-1", ["status 3"]),
    ("1048577", ["status 3"]), ("4294967350", ["status 3"]),  # 2^32 more than there are
    ("55", ["status 3"]),
    (" 54 bytes", STORED),
])
def test_the_length_of_a_body(camera, length, effects):
    assert camera.effects("PUT", INFO, NAME, variables={"CONTENT_LENGTH": length}) == effects


@pytest.mark.parametrize("body, effects", [
    (NAME.ljust(1048576), STORED),
    (NAME.ljust(1048577), ["status 3"]),
    (NAME + "\0behind", STORED),
    ("<a>" * 100000, ["status 3"]),  # and no words of the parser
])
def test_a_body_of_up_to_1_mib_is_read_to_its_first_zero_byte(camera, body, effects):
    assert camera.effects("PUT", INFO, body) == effects


def test_a_body_ends_after_30_seconds_of_silence_a_slow_one_does_not(faulty_camera):
    faulty_camera.plan.speed = 40
    silent = faulty_camera.begin("PUT", INFO, NAME, finished=False, first=-20)
    faulty_camera.wait_until_blocked_in("read")
    silent.send_bytes(silent.rest[:10])
    start = time.monotonic()
    assert silent.receive()[0] == status(3, INFO)
    assert 0.7 < time.monotonic() - start < 10
    silent.socket.close()
    slow = faulty_camera.begin("PUT", INFO, NAME, finished=False, first=-2)
    for byte in slow.rest:
        time.sleep(0.45)  # 18 s
        slow.send_bytes(bytes([byte]))
    assert slow.receive()[0] == status(1, INFO)
    slow.socket.close()
    later = faulty_camera.begin("GET", "/PSIA/x", first=0)  # which no timer of a body disturbs
    time.sleep(0.8)
    later.send_rest()
    assert later.receive()[0] == status(4, "/PSIA/x")


# Media and peers that are slow.

@pytest.mark.parametrize("stop", [None, signal.SIGTERM])
def test_a_medium_that_blocks_does_not_truncate_an_upload(faulty_camera, stop):
    faulty_camera.plan.speed = 100
    UPLOADED.unlink(missing_ok=True)
    os.mkfifo(UPLOADED)  # a file that blocks while nobody reads and 64 KiB wait
    sent = 100 * 1024 * b"s"
    upload = faulty_camera.begin("PUT", CONFIGURATION, sent, first=-20000)
    with open(UPLOADED, "rb") as medium:
        faulty_camera.wait_until_blocked_in("write")
        if stop:
            faulty_camera.process.send_signal(stop)
        time.sleep(0.5)  # 50 s for the service, which would be too much silence
        upload.send_rest()
        assert len(medium.read()) == len(sent)
    assert upload.receive()[0] == status(1, CONFIGURATION)
    UPLOADED.unlink()


def begin_download(camera):
    """Begins to download a file that is larger than what a socket holds."""
    (EXCHANGE / "export.dat").write_bytes(1000000 * b"e")
    download = camera.begin("GET", CONFIGURATION)
    assert REPLIES.send(reply(REQUESTS.next(), 0, b"export.dat"))
    camera.wait_until_blocked_in("write")
    return download


@pytest.mark.parametrize("stop", [None, signal.SIGTERM])
def test_a_peer_that_does_not_take_its_answer_is_left(faulty_camera, stop):
    faulty_camera.plan.speed = 40
    download = begin_download(faulty_camera)
    start = time.monotonic()
    if stop:
        assert faulty_camera.stop_service(stop) == 0
        assert time.monotonic() - start > 1.5 / 40
    else:
        assert faulty_camera.call("GET", "/PSIA/x") == status(4, "/PSIA/x")
        assert time.monotonic() - start > 30 / 40
    with pytest.raises(AssertionError, match="closed without an end"):
        download.receive()


def test_a_peer_that_takes_its_answer_slowly_receives_all_of_it(faulty_camera):
    faulty_camera.plan.speed = 40
    download = begin_download(faulty_camera)
    received = b""
    while len(received) < 200000:  # takes 100 s for the service
        received += download.socket.recv(20000)
        time.sleep(0.25)  # 10 s
    while more := download.socket.recv(65536):
        received += more
    assert received.count(b"e") > 1000000


@pytest.mark.parametrize("request_ends", [True, False])
def test_what_a_peer_sends_after_its_answer_delays_nobody(faulty_camera, request_ends):
    faulty_camera.plan.speed = 20
    talkative = faulty_camera.begin("PUT", "/PSIA/x", "body", finished=request_ends)
    assert talkative.receive()[0] == status(4, "/PSIA/x")
    later = faulty_camera.begin("GET", "/PSIA/x")

    def is_answered():
        talkative.send_bytes(stream(INPUT, b"more", end=False))
        return later.answers_within(0.01)
    eventually(is_answered, "the answer to the later request")
