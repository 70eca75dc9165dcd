"""What a request may cost: documents that are made to grow, bodies of odd lengths or without an end."""
import time

import pytest

from camera import status

INFO = "/PSIA/System/deviceInfo"
NAME = "<DeviceInfo><deviceName>sent</deviceName></DeviceInfo>"
STORED = ["Network.DDNSHostname = sent", "status 1"]


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
    silent = faulty_camera.begin("PUT", INFO, NAME, finished=False, first=-1)
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
