"""Device information and status, and the identifier that the service generates once for a device."""
import re

import pytest

from answers import UNAUTHORIZED, elements, offset_of
from camera import DEFAULTS, FACTORY_DATA

INFO = "/PSIA/System/deviceInfo"
STATUS = "/PSIA/System/status"
SERIAL_NUMBER_AT = 256  # byte of the factory data; 31 characters and a zero byte
HALF_PAST_FIVE = (5 * 60 + 30) * 60  # seconds


def information(camera, variables=None):
    return elements(camera.call("GET", INFO, variables=variables))


def test_a_long_name_is_shown_whole_and_an_identifier_is_truncated_to_39_characters(camera):
    name, identifier = 300 * "n", 39 * "i"
    camera.execute(f"update Network set DDNSHostname='{name}'; update System set uuid='{identifier}more'")
    shown = information(camera)
    assert (shown["deviceName"], shown["deviceID"]) == (name, identifier)


def test_without_a_stored_name_the_host_name_of_request_or_start_is_shown(unstarted_camera, monkeypatch):
    camera = unstarted_camera
    camera.execute("delete from Network")
    monkeypatch.delenv("HOSTNAME", raising=False)  # of the machine that runs the tests
    camera.start_service()
    assert information(camera)["deviceName"] == "(null)"  # neither has one
    assert information(camera, {"HOSTNAME": "of-request"})["deviceName"] == "of-request"
    camera.stop_service()
    camera.start_service({"HOSTNAME": "at-start"})
    assert information(camera)["deviceName"] == "at-start"


@pytest.mark.parametrize("content, shown, reported", [
    pytest.param(SERIAL_NUMBER_AT * b"x" + 31 * b"s" + b"no zero byte", 31 * "s", "", id="unterminated"),
    pytest.param(SERIAL_NUMBER_AT * b"x" + 31 * b"s", "0", "eeprom read fail res=31, error=Success\n",
                 id="one byte missing"),
    pytest.param(None, "0", "EEPROM OPEN: No such file or directory", id="no factory data"),
])
def test_the_serial_number_is_read_from_the_factory_data_or_is_0(camera, content, shown, reported):
    descriptors = camera.open_descriptors()
    if content is None:
        FACTORY_DATA.unlink()
    else:
        FACTORY_DATA.write_bytes(content)
    document, errors = camera.begin("GET", INFO).receive()
    assert (elements(document)["serialNumber"], errors) == (shown, reported)
    assert camera.open_descriptors() == descriptors


def test_a_new_identifier_is_stored_in_both_databases_and_closes_the_first(camera):
    camera.execute("update System set uuid='aaaaaaaaaaaaaaaa-and-more'")  # the placeholder, whatever follows
    shown = information(camera)
    identifier = shown["deviceID"]
    # A random UUID, in capitals but for the last group.
    assert re.fullmatch("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9a-f]{12}", identifier)
    assert camera.rows("select uuid from System") == [(identifier,)]
    assert camera.rows("select uuid from System", DEFAULTS) == [(identifier,)]
    # The rest of this very document is already written without the database, so it shows defaults.
    assert shown["model"] == "Quellan IP Camera"
    assert shown["firmwareVersion"] == "0.0.0.0"
    assert shown["firmwareReleasedDate"] == "000000"
    assert camera.call("GET", INFO) == UNAUTHORIZED  # as no account can be read


def test_the_status_shows_the_time_in_the_zone_of_the_request(camera):
    camera.call("GET", STATUS)  # the zone is known now, and must be read again
    shown = elements(camera.call("GET", STATUS, variables={"TZ": "AAA-5:30"}))  # minus is ahead of UTC
    assert offset_of(shown["currentDeviceTime"]) == HALF_PAST_FIVE
