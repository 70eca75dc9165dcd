"""Device information and status, and the identifier that the service generates once for a device."""
import os
import re
import subprocess

import pytest

from camera import DEFAULTS, DIRECTORY, FACTORY_DATA, UNAUTHORIZED, elements, offset_of

INFO = "/PSIA/System/deviceInfo"
os.environ.pop("HOSTNAME", None)  # of the machine that runs the tests


def information(camera, variables=None):
    return elements(camera.call("GET", INFO, variables=variables))


def test_a_name_is_shown_whole_and_39_characters_of_an_identifier(camera):
    text = 15 * "a" + 300 * "n"
    camera.execute(f"update Network set DDNSHostname='{text}'; update System set uuid='{text}'")
    shown = information(camera)
    assert (shown["deviceName"], shown["deviceID"]) == (text, text[:39])


def test_without_a_stored_name_the_host_name_is_shown(camera):
    camera.execute("delete from Network")
    assert information(camera)["deviceName"] == "(null)"
    assert information(camera, {"HOSTNAME": "of-request"})["deviceName"] == "of-request"
    camera.stop_service()
    camera.start_service({"HOSTNAME": "at-start"})
    assert information(camera)["deviceName"] == "at-start"


def test_the_serial_number_is_at_byte_256_of_the_factory_data(camera):
    def serial_number_and_report():
        answer, reported = camera.begin("GET", INFO).receive()
        return elements(answer)["serialNumber"], reported
    descriptors = camera.open_descriptors()
    FACTORY_DATA.write_bytes(256 * b"x" + 31 * b"s" + b"tuv")
    assert serial_number_and_report() == (31 * "s", "")
    FACTORY_DATA.write_bytes(256 * b"x" + 31 * b"s")
    assert serial_number_and_report() == ("0", "eeprom read fail res=31, error=Success\n")
    FACTORY_DATA.unlink()
    assert serial_number_and_report() == ("0", "EEPROM OPEN: No such file or directory")
    assert camera.open_descriptors() == descriptors


def test_a_new_identifier_is_stored_in_both_databases_and_closes_the_first(camera):
    camera.execute("update System set uuid='aaaaaaaaaaaaaaaa-and-more'")
    shown = information(camera)
    identifier = shown["deviceID"]
    assert re.fullmatch("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9a-f]{12}", identifier)
    assert camera.rows("select uuid from System") == [(identifier,)]
    assert camera.rows("select uuid from System", DEFAULTS) == [(identifier,)]
    # The rest of this very document is already written without the database.
    assert (shown["model"], shown["firmwareVersion"]) == ("Quellan IP Camera", "0.0.0.0")
    assert shown["firmwareReleasedDate"] == "000000"
    assert camera.call("GET", INFO) == UNAUTHORIZED
    assert camera.stop_service() == 0


@pytest.mark.parametrize("body, effects", [
    ("<deviceinfo><deviceName>a</deviceName><DEVICENAME>&lt;b</DEVICENAME></deviceinfo>",
     ["Network.DDNSHostname = <b", "status 1"]),
    (f"<DeviceInfo><deviceName>{31 * 'n'}x</deviceName></DeviceInfo>",
     [f"Network.DDNSHostname = {31 * 'n'}", "status 1"]),
])
def test_the_last_device_name_is_stored(camera, body, effects):
    assert camera.effects("PUT", INFO, body) == effects


@pytest.mark.parametrize("line, seconds", [
    ("2147483648.5 1\n", "2147483647"),
    ("12345.67\n2345.12\n", "0"),  # only the first line is read, and it must hold two numbers
    (31 * " " + "77 5\n", "77"),   # 35 characters are read
])
def test_the_status_shows_the_uptime_and_the_time_of_the_zone_in_force(camera, line, seconds):
    camera.call("GET", "/PSIA/System/status")  # after this the zone must be read again
    (DIRECTORY / "uptime").write_text(line)
    subprocess.run(["mount", "--bind", DIRECTORY / "uptime", "/proc/uptime"], check=True)
    shown = elements(camera.call("GET", "/PSIA/System/status", variables={"TZ": "AAA-5:30"}))
    subprocess.run(["umount", "/proc/uptime"], check=True)
    assert shown["deviceUpTime"] == seconds
    assert offset_of(shown["currentDeviceTime"]) == 19800
